#!/usr/bin/python3
"""Compares rerank models beyond the linear coordinate-ascent fit on held-out folds.

Every model scores the fused head (the first `depth` candidates by the shipped fusion) from the
same inputs the retriever reads; the rest keeps the fused order, as in fit_rerank.places. Models:
the linear weights shipped and refitted by coordinate ascent (the baseline), linear weights fitted
with a listwise (softmax over the head) or pairwise (every answer against every other candidate)
objective or LambdaRank, the same with a few interaction inputs or with weights of their own for
Go, the extra inputs by coordinate ascent, a small MLP (numpy) and small gradient-boosted trees
(sklearn, pointwise). Folds: every question written before the newest spent set -> that set, and
leave one corpus out. All sets here are spent: the figures are cross-validated, not untouched ones.
L2, Adam's steps and the trees' rounds are chosen, where a model says so, on an inner check: the
newest generation of the training questions against the older ones, never on the test questions.
Against the shipped weights each model prints the questions it wins and loses and a sign test.

Usage: bench/quality/rerank_models.py [--build DIR] [--only MODEL,...] (default: DEFAULT below)
The dumps are fit_rerank.py's (written by it when missing or older than the binary).
"""
import argparse
import os
import sys
import time

import numpy as np
from scipy.optimize import minimize
from scipy.stats import binomtest

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import fit_rerank as fr  # noqa: E402

# The inputs a learned model reads, beside the fused score spread over the head (always weight 1,
# as the linear model has it). `holder` is computed over the head like the retriever does.
LINEAR = fr.RERANKED + ["test", "spelled", "holder"]
# More inputs the learned models may read: the question's words in the symbol's own name, the
# fused place (log), and whether the symbol came by meaning alone.
EXTRA = ["own_name", "place", "meaning_only"]
# Kind inputs and question inputs for interactions.
KINDS = ["method", "is_thing"]
ASKS = ["in_name", "own_name", "function", "meaning", "docstring", "callers"]


def asks_action(x, kinds):
    """Whether each question asks how (the dump's `thing` is asks-how times a thing kind): true
    when some thing in the candidates has it; questions with no thing among them read false."""
    is_thing = np.isin(kinds, list(fr.THINGS))
    return ((x[..., fr.IX["thing"]] > 0) & is_thing).any(1)


def head_inputs(w, data, kinds, go):
    """The base (spread fused score) and a dict of named [Q, C] inputs over the head."""
    model, head, pos = fr.model_scores(dict(w, **{k: 0.0 for k in fr.RERANKED + ["test",
                                                                                  "spelled",
                                                                                  "holder"]}),
                                       data)
    x = data["x"]
    inputs = {k: x[..., fr.IX[k]] for k in LINEAR if k != "holder"}
    inputs["holder"] = fr.holders(w, data, head).astype(float)
    inputs["own_name"] = x[..., fr.IX["own_name"]]
    inputs["place"] = np.log2(1.0 + pos) / np.log2(1.0 + w["depth"])
    alone = ~(x[..., [fr.IX[k] for k in ["text", "widened", "named", "paired"]]] > 0).any(-1)
    inputs["meaning_only"] = alone.astype(float)
    inputs["method"] = ((kinds == "method") | ((kinds == "function") &
                                               (x[..., fr.IX["function"]] == 0))).astype(float)
    inputs["is_thing"] = np.isin(kinds, list(fr.THINGS)).astype(float)
    ask = asks_action(x, kinds)[:, None].astype(float)
    for k in set(ASKS) | set(LINEAR):
        inputs[k + "*asks"] = inputs[k] * ask
    for k in ["in_name", "own_name", "meaning", "docstring", "callers"]:
        inputs[k + "*method"] = inputs[k] * inputs["method"]
    gof = go[:, None].astype(float)
    for k in LINEAR + EXTRA:
        inputs[k + "*go"] = inputs[k] * gof
    return model, head, pos, inputs


def stack(inputs, names, head):
    return np.stack([np.where(head, inputs[k], 0.0) for k in names], -1)


def places_of(score, head, pos, data):
    """The place of the first answer (0: not in the first ten) when the head is ordered by score
    (ties by fused place) and the rest by fused place."""
    s = np.where(head, 1e6 + score, -pos.astype(float))
    s = np.where(data["valid"], s, -np.inf)
    order = np.lexsort((pos, -s))
    ranked = np.take_along_axis(data["hit"], order, axis=1)
    first = np.where(ranked.any(1), ranked.argmax(1) + 1, 0)
    return np.where(first <= fr.DEPTH, first, 0)


# The weights the retriever ships (fit_rerank's newest): the baseline, and the prior every learned
# linear part starts from and is drawn back to, so that an input one corpus alone has (Go's
# exported names) keeps its weight when that corpus is held out.
CURRENT = dict(fr.OWNERS)


def prior(names):
    return np.array([CURRENT.get(k, 0.0) for k in names])


# ---- differentiable scorers: score = base + X @ (prior + theta) [+ a hidden layer]; each returns
# (score, backward); the L2 term draws theta to 0, the linear part to the prior.


def linear_scorer(n_in, w0):
    def f(theta, base, X):
        s = base + X @ (w0 + theta)
        return s, lambda g: np.einsum("qc,qck->k", g, X)
    return f, np.zeros(n_in)


def mlp_scorer(n_in, w0, hidden=8, seed=0):
    rng = np.random.default_rng(seed)
    shapes = [(n_in,), (n_in, hidden), (hidden,), (hidden,)]
    sizes = [int(np.prod(s)) for s in shapes]

    def unpack(theta):
        out, at = [], 0
        for shape, size in zip(shapes, sizes):
            out.append(theta[at:at + size].reshape(shape))
            at += size
        return out

    def f(theta, base, X):
        w, W1, b1, v = unpack(theta)
        h = np.tanh(X @ W1 + b1)
        s = base + X @ (w0 + w) + h @ v

        def back(g):
            gw = np.einsum("qc,qck->k", g, X)
            gv = np.einsum("qc,qch->h", g, h)
            gh = g[..., None] * v * (1 - h * h)
            return np.concatenate([gw, np.einsum("qch,qck->kh", gh, X).ravel(),
                                   gh.sum((0, 1)), gv])
        return s, back
    theta = np.concatenate([np.zeros(n_in), rng.normal(0, 0.1, n_in * hidden), np.zeros(hidden),
                            rng.normal(0, 0.1, hidden)])
    return f, theta


def listwise_loss(s, head, hit, qw):
    """-log of the softmax mass the answers get over the head, per question weight qw."""
    s = np.where(head, s, -np.inf)
    m = s.max(1, keepdims=True)
    e = np.where(head, np.exp(s - m), 0.0)
    z = e.sum(1)
    eh = np.where(hit & head, e, 0.0)
    zh = eh.sum(1)
    ok = zh > 0
    loss = float((qw[ok] * (np.log(z[ok]) - np.log(zh[ok]))).sum())
    g = np.zeros_like(e)
    g[ok] = (e[ok] / z[ok, None] - eh[ok] / zh[ok, None]) * qw[ok, None]
    return loss, g


def pairwise_loss(s, head, hit, qw):
    """Mean log-loss of the best answer against every other head candidate, per question."""
    pos_mask = hit & head
    neg_mask = head & ~hit
    ok = pos_mask.any(1) & neg_mask.any(1)
    sp = np.where(pos_mask, s, -np.inf).max(1)
    sp = np.where(ok, sp, 0.0)
    best = np.argmax(np.where(pos_mask, s, -np.inf), 1)
    d = sp[:, None] - s
    lg = np.logaddexp(0, -d)
    cnt = np.maximum(neg_mask.sum(1), 1)
    per = np.where(neg_mask, lg, 0).sum(1) / cnt
    loss = float((qw * np.where(ok, per, 0)).sum())
    sig = np.where(neg_mask, 1 / (1 + np.exp(d)), 0) / cnt[:, None] * (qw * ok)[:, None]
    g = sig.copy()
    g[np.arange(len(s)), best] -= sig.sum(1)
    return loss, g


def lambda_gradient(s, head, hit, qw):
    """LambdaRank's pseudo-gradient for MRR@10: the best answer against every other candidate of
    the head, each pair weighted by how much the reciprocal rank (0 past the tenth place) would
    change if the two swapped places."""
    pos_mask = hit & head
    neg_mask = head & ~hit
    ok = pos_mask.any(1) & neg_mask.any(1)
    order = np.argsort(-np.where(head, s, -np.inf), axis=1, kind="stable")
    rank = np.empty_like(order)
    rank[np.arange(len(s))[:, None], order] = np.arange(1, s.shape[1] + 1)[None, :]
    rr = np.where(rank <= fr.DEPTH, 1.0 / rank, 0.0)
    best = np.argmax(np.where(pos_mask, s, -np.inf), 1)
    rows = np.arange(len(s))
    d = s[rows, best][:, None] - s
    delta = np.abs(rr[rows, best][:, None] - rr)
    lam = np.where(neg_mask, delta / (1 + np.exp(np.clip(d, -50, 50))), 0.0) * (qw * ok)[:, None]
    g = lam.copy()
    g[rows, best] -= lam.sum(1)
    return 0.0, g


def train_adam(scorer, base, X, head, hit, qw, l2, steps=300, rate=0.01, every=None):
    """Adam on a pseudo-gradient (LambdaRank has no loss to hand L-BFGS). With `every`, the
    parameters after every that many steps, by step count (for stopping early)."""
    f, theta = scorer
    qw = qw / qw.sum()
    m, v = np.zeros_like(theta), np.zeros_like(theta)
    snapshots = {}
    for t in range(1, steps + 1):
        s, back = f(theta, base, X)
        _, g = lambda_gradient(s, head, hit, qw)
        grad = back(g) + 2 * l2 * theta
        m = 0.9 * m + 0.1 * grad
        v = 0.999 * v + 0.001 * grad * grad
        theta = theta - rate * (m / (1 - 0.9 ** t)) / (np.sqrt(v / (1 - 0.999 ** t)) + 1e-8)
        if every and t % every == 0:
            snapshots[t] = theta.copy()
    return snapshots if every else theta


def train(scorer, base, X, head, hit, qw, objective, l2, rate, steps=300, every=None):
    if objective is lambda_gradient:
        return train_adam(scorer, base, X, head, hit, qw, l2, steps=steps, rate=rate, every=every)
    f, theta0 = scorer
    qw = qw / qw.sum()

    def value(theta):
        s, back = f(theta, base, X)
        loss, g = objective(s, head, hit, qw)
        return loss + l2 * float(theta @ theta), back(g) + 2 * l2 * theta
    res = minimize(value, theta0, jac=True, method="L-BFGS-B", options={"maxiter": steps})
    return res.x


def narrow(tr, mask):
    """The part of a training part under a question mask, its files weighing the same again."""
    out = {k: (v[mask] if isinstance(v, np.ndarray) else {j: u[mask] for j, u in v.items()})
           for k, v in tr.items() if k != "qw"}
    out["qw"] = fr.per_file(out["sets"])
    return out


def inner(tr):
    """The training questions split to choose L2, steps or rounds: the newest generation they hold
    checks what the older ones fit, as the newest spent set stands to the sets before it (the
    test questions are never read for it)."""
    g = tr["generation"]
    return narrow(tr, g < g.max()), narrow(tr, g == g.max())


def check_mrr(score, check):
    p = places_of(score, check["head"], check["pos"], check["data"])
    return float((np.where(p > 0, 1.0 / np.maximum(p, 1), 0) * check["qw"]).sum())


CHOICES = []  # (model, option chosen on the inner check) per fold, printed with the figures


# ---- the models: each (train data, its question weights) -> a scoring function of test data

def learned(names, objective, l2=1e-3, mlp=False, seed=0, rate=0.01, l2s=None, steps=None):
    """A model fitted by `objective`. With l2s (L-BFGS) or steps (Adam, a list of step counts),
    the value that orders the inner check best, then refitted on all the training questions."""
    def fit_one(tr, l2, n_steps, every=None):
        X = stack(tr["inputs"], names, tr["head"])
        w0 = prior(names)
        scorer = mlp_scorer(len(names), w0, seed=seed) if mlp else linear_scorer(len(names), w0)
        out = train(scorer, tr["base"], X, tr["head"], tr["data"]["hit"], tr["qw"], objective,
                    l2, rate, steps=n_steps, every=every)

        def scorer_of(theta):
            def score(te):
                return scorer[0](theta, te["base"], stack(te["inputs"], names, te["head"]))[0]
            score.theta, score.names = theta, names
            return score
        if every:
            return {t: scorer_of(theta) for t, theta in out.items()}
        return scorer_of(out)

    def make(tr):
        if not l2s and not steps:
            return fit_one(tr, l2, 300)
        fit_part, check = inner(tr)
        if steps:
            every = min(steps)
            tried = fit_one(fit_part, l2, max(steps), every)
            values = {t: check_mrr(tried[t](check), check) for t in steps}
            best = max(steps, key=lambda t: (values[t], -t))
            CHOICES.append(("steps", best))
            return fit_one(tr, l2, best)
        values = {v: check_mrr(fit_one(fit_part, v, 300)(check), check) for v in l2s}
        best = max(l2s, key=lambda v: (values[v], v))
        CHOICES.append(("L2", best))
        return fit_one(tr, best, 300)
    return make


def ascent(names, passes=2):
    """Coordinate ascent on MRR@10 (every file weighing the same), as fit_rerank fits the linear
    weights: the shipped linear score plus the named inputs, each weight in turn set to the best
    of the grid."""
    def make(tr):
        X = stack(tr["inputs"], names, tr["head"])
        qw = tr["qw"]

        def value(v):
            p = places_of(tr["linear"] + X @ v, tr["head"], tr["pos"], tr["data"])
            return float((np.where(p > 0, 1.0 / np.maximum(p, 1), 0) * qw).sum())
        v = np.zeros(len(names))
        best = value(v)
        for _ in range(passes):
            moved = False
            for k in range(len(names)):
                for g in fr.GRID:
                    trial = v.copy()
                    trial[k] = g
                    t = value(trial)
                    if t > best + 1e-9:
                        best, v, moved = t, trial, True
            if not moved:
                break

        def score(te):
            return te["linear"] + stack(te["inputs"], names, te["head"]) @ v
        score.theta, score.names = v, names
        return score
    return make


def trees(names, depth=3, rounds=100, choose=None):
    """Pointwise gradient-boosted trees over the shipped linear score and the inputs. With
    `choose` (most rounds), the round count that orders the inner check best."""
    from sklearn.ensemble import HistGradientBoostingClassifier

    def features(part):
        h = part["head"]
        return np.concatenate([part["linear"][..., None], stack(part["inputs"], names, h)], -1)[h]

    def fit_one(tr, n):
        head = tr["head"]
        sw = np.broadcast_to(tr["qw"][:, None], head.shape)[head]
        model = HistGradientBoostingClassifier(max_depth=depth, max_iter=n, learning_rate=0.1,
                                               random_state=0, early_stopping=False)
        model.fit(features(tr), tr["data"]["hit"][head], sample_weight=sw / sw.mean())
        return model

    def scores(model, te):
        for d in model.staged_decision_function(features(te)):
            out = np.zeros(te["head"].shape)
            out[te["head"]] = d
            yield out

    def make(tr):
        n = rounds
        if choose:
            fit_part, check = inner(tr)
            model = fit_one(fit_part, choose)
            values = [check_mrr(s, check) for s in scores(model, check)]
            n = int(np.argmax(values)) + 1
            CHOICES.append(("rounds", n))
        model = fit_one(tr, n)

        def score(te):
            out = np.zeros(te["head"].shape)
            out[te["head"]] = model.decision_function(features(te))
            return out
        return score
    return make


def python_only(make_model, all_questions=False):
    """A model ordering only the Python questions, fitted on them (or on every question); Go keeps
    the shipped weights (Go's order learned from Python alone lost leaving a corpus out)."""
    def make(tr):
        py = tr["corpus"] != "go"
        if not py.any():
            return lambda te: te["linear"]
        model = make_model(tr if all_questions else narrow(tr, py))

        def score(te):
            return np.where((te["corpus"] == "go")[:, None], te["linear"], model(te))
        return score
    return make


def linear_weights(w):
    def score(te):
        model, _, _ = fr.model_scores(w, te["data"])
        return model
    return score


def shipped(tr):
    return linear_weights(CURRENT)


def refit(tr):
    """Coordinate ascent on MRR@10 from the shipped weights, every file weighing the same."""
    names = [k for k in fr.FITTED if k not in fr.NAME_WORDS] + ["public_name"]
    return linear_weights(fr.fit(CURRENT, names, tr["data"], fr.per_file(tr["sets"])))


INTER = LINEAR + EXTRA + KINDS + [k + "*asks" for k in ASKS] + \
    [k + "*method" for k in ["in_name", "own_name", "meaning", "docstring", "callers"]]
PER_GO = LINEAR + [k + "*go" for k in LINEAR]
STEPS = list(range(25, 301, 25))
L2S = [1e-3, 1e-2, 1e-1]
MODELS = {
    "linear shipped": shipped,
    "linear refit (coordinate ascent)": refit,
    "linear listwise": learned(LINEAR, listwise_loss),
    "linear pairwise": learned(LINEAR, pairwise_loss),
    "listwise + own name, place": learned(LINEAR + EXTRA, listwise_loss),
    "listwise + interactions": learned(INTER, listwise_loss),
    "listwise, Go weighs apart": learned(PER_GO, listwise_loss),
    "MLP listwise (8 tanh)": learned(LINEAR + EXTRA, listwise_loss, l2=1e-3, mlp=True),
    "trees (depth 3; 100 rounds)": trees(LINEAR + EXTRA + KINDS),
    "listwise + interactions (L2 0.01)": learned(INTER, listwise_loss, l2=1e-2),
    "listwise + interactions (L2 0.1)": learned(INTER, listwise_loss, l2=1e-1),
    "MLP listwise (L2 0.01)": learned(LINEAR + EXTRA, listwise_loss, l2=1e-2, mlp=True),
    "LambdaRank linear": learned(LINEAR, lambda_gradient),
    "LambdaRank + interactions": learned(INTER, lambda_gradient),
    "LambdaRank MLP": learned(LINEAR + EXTRA, lambda_gradient, mlp=True),
    # The same from other random starts: how much of a gain is the start.
    "LambdaRank MLP (seed 1)": learned(LINEAR + EXTRA, lambda_gradient, mlp=True, seed=1),
    "LambdaRank MLP (seed 2)": learned(LINEAR + EXTRA, lambda_gradient, mlp=True, seed=2),
    "LambdaRank + own name + place": learned(LINEAR + EXTRA, lambda_gradient),
    # Adam moves every weight by about its rate a step however small the pseudo-gradient: smaller
    # steps keep the linear weights nearer the shipped ones.
    "LambdaRank linear (rate 0.002)": learned(LINEAR, lambda_gradient, rate=0.002),
    "LambdaRank MLP (rate 0.002)": learned(LINEAR + EXTRA, lambda_gradient, mlp=True,
                                           rate=0.002),
    "ascent: own name + place + by meaning": ascent(EXTRA),
    "ascent: interactions": ascent(EXTRA + KINDS + [k + "*asks" for k in ASKS]
                                   + [k + "*method" for k in ["in_name", "own_name", "meaning",
                                                              "docstring", "callers"]]),
    "ascent: Go weighs apart": ascent([k + "*go" for k in LINEAR]),
    # With the choice made on the inner check (the newest generation of the training questions):
    # Adam's step count, L-BFGS's L2, the trees' rounds.
    "LambdaRank MLP (steps inner)": learned(LINEAR + EXTRA, lambda_gradient, mlp=True,
                                            steps=STEPS),
    "LambdaRank MLP (steps inner; seed 1)": learned(LINEAR + EXTRA, lambda_gradient, mlp=True,
                                                    seed=1, steps=STEPS),
    "MLP listwise (L2 inner)": learned(LINEAR + EXTRA, listwise_loss, mlp=True, l2s=L2S),
    "listwise + interactions (L2 inner)": learned(INTER, listwise_loss, l2s=L2S),
    "trees over the linear score (rounds inner)": trees(LINEAR + EXTRA + KINDS, choose=300),
    "listwise + interactions; Python only (L2 inner)":
        python_only(learned(INTER, listwise_loss, l2s=L2S)),
    "listwise + interactions fitted on all; orders Python only (L2 inner)":
        python_only(learned(INTER, listwise_loss, l2s=L2S), all_questions=True),
    "LambdaRank MLP fitted on all; orders Python only (steps inner)":
        python_only(learned(LINEAR + EXTRA, lambda_gradient, mlp=True, steps=STEPS),
                    all_questions=True),
    "MLP listwise; Python only (L2 inner)":
        python_only(learned(LINEAR + EXTRA, listwise_loss, mlp=True, l2s=L2S)),
    # Weights of their own, over the shipped ones, when the question asks how.
    "ascent: asks how weighs apart": ascent([k + "*asks" for k in LINEAR]),
}
DEFAULT = ["linear shipped", "LambdaRank MLP (steps inner)", "LambdaRank MLP (steps inner; seed 1)",
           "MLP listwise (L2 inner)", "listwise + interactions (L2 inner)",
           "trees over the linear score (rounds inner)", "ascent: interactions",
           "ascent: asks how weighs apart", "ascent: Go weighs apart"]


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=os.environ.get("TAMSEL_BUILD", "build"))
    parser.add_argument("--only", help="comma-separated models")
    parser.add_argument("--fold", choices=["latest", "corpus"], help="only this check")
    args = parser.parse_args()
    fr.dump(args.build, False)
    questions, full = fr.load()
    data = fr.trim(fr.SHIPPED, full)
    kinds_full = np.full(full["valid"].shape, "", dtype=object)
    for i, q in enumerate(questions):
        for j, c in enumerate(q["rows"]):
            kinds_full[i, j] = c["kind"]
    _, order, _ = fr.fused_order(fr.SHIPPED, full["x"], full["valid"])
    kinds = np.take_along_axis(kinds_full, order[:, :data["x"].shape[1]], 1).astype(str)
    sets = np.array([q["set"] for q in questions])
    corpora = np.array([q["corpus"] for q in questions])
    generation = np.array([q["generation"] for q in questions])
    base, head, pos, inputs = head_inputs(CURRENT, data, kinds, corpora == "go")
    linear = fr.model_scores(CURRENT, data)[0]

    def part(mask):
        return {"data": fr.sub(data, mask), "base": base[mask], "head": head[mask],
                "linear": linear[mask],
                "pos": pos[mask], "inputs": {k: v[mask] for k, v in inputs.items()},
                "sets": sets[mask], "generation": generation[mask], "corpus": corpora[mask],
                "qw": fr.per_file(sets[mask])}

    later = generation == fr.LATEST
    folds = {f"written before set {fr.LATEST} -> set {fr.LATEST}": [(~later, later)],
             "leave one corpus out": [(corpora != c, corpora == c)
                                      for c in ["stdlib", "django", "go"]]}
    if args.fold:
        folds = dict([list(folds.items())[0 if args.fold == "latest" else 1]])
    chosen = args.only.split(",") if args.only else DEFAULT
    shipped_places = {}
    for title, fold in folds.items():
        print(f"\n== {title} (cross-validated on spent sets)", flush=True)
        for name in chosen:
            start = time.time()
            CHOICES.clear()
            held, test_ix = [], []
            for tr_mask, te_mask in fold:
                score = MODELS[name](part(tr_mask))
                te = part(te_mask)
                held.append(places_of(score(te), te["head"], te["pos"], te["data"]))
                test_ix.append(np.flatnonzero(te_mask))
            p = np.concatenate(held)
            c = corpora[np.concatenate(test_ix)]
            cells = []
            for sel in ["stdlib", "django", "go", None]:
                f = fr.figures(p if sel is None else p[c == sel])
                cells.append(f"{f['top1']:3d}/{f['top5']:3d}/{f['mrr']:.3f}")
            print(f"  {name:34s} " + "  ".join(cells), flush=True)
            # The questions a model changes against the shipped weights: first places (and places
            # in the first five) won and lost, and how likely so uneven a split is by chance.
            if name == "linear shipped":
                shipped_places[title] = p
            elif title in shipped_places:
                base_p = shipped_places[title]
                notes = []
                for label, good in [("top-1", lambda q: q == 1),
                                    ("top-5", lambda q: (q >= 1) & (q <= 5))]:
                    won = int((good(p) & ~good(base_p)).sum())
                    lost = int((~good(p) & good(base_p)).sum())
                    pv = binomtest(won, won + lost).pvalue if won + lost else 1.0
                    notes.append(f"{label} +{won}/-{lost} p={pv:.2f}")
                print("      " + ", ".join(notes), flush=True)
            if CHOICES:
                print("      chosen on the inner check: "
                      + ", ".join(f"{k} {v}" for k, v in CHOICES))
            print(f"      ({time.time() - start:.0f} s)", flush=True)
    print("  columns: stdlib, Django, Go, all: top-1/top-5/MRR@10")


if __name__ == "__main__":
    main()
