#pragma once

namespace mm {

class MatchMatrix {
 public:
  MatchMatrix(int lhs, int rhs) : lhs_(lhs), rhs_(rhs) {}
  bool NextGraph() { return lhs_ < rhs_; }
  int Width() const { return lhs_; }
  int Height() const { return rhs_; }

 private:
  int lhs_, rhs_;
};

template <typename F>
struct CallableTraits {
  template <typename T>
  static int Invoke(F f, T t) {
    return f(t);
  }
};

template <typename F, typename T>
int Apply(F f, T t) {
  return CallableTraits<F>::template Invoke<T>(f, t);
}

}  // namespace mm
