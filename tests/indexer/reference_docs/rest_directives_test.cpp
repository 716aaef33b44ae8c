#include "orvane_tamsel/indexer/reference_docs/rest_directives.h"

#include <gtest/gtest.h>

#include <map>
#include <string>

namespace {

using namespace orvane_tamsel::indexer::reference_docs;

std::map<std::string, std::string> names_of(std::string_view page) {
  std::map<std::string, std::string> out;
  for (const auto& n : documented_names(page)) out[n.fqn] = n.text;
  return out;
}

// Names take the page's module and their enclosing class; bodies end where the indentation
// does, and a nested directive's words are its own.
TEST(RestDirectives, NamesTakeModuleAndClassAndBodiesEndWithTheirIndentation) {
  auto names = names_of(R"(.. module:: asyncio
   :synopsis: ignored option

.. class:: Queue(maxsize=0)
           PriorityQueue()
   :noindex:

   A first in, first out (FIFO) queue.

   .. method:: join()

      Block until all items are processed.

   .. py:coroutinemethod:: Queue.put(item)

      Put an item.

   Words after the members belong to the class.

Unrelated text of the section.

.. currentmodule:: asyncio.tasks

.. function:: asyncio.tasks.gather(*aws)
.. function:: sleep(delay)

   Sleep.

.. currentmodule:: None

.. exception:: TimeoutError

   Timed out.
)");
  EXPECT_EQ(names, (std::map<std::string, std::string>{
                       {"asyncio.Queue",
                        "A first in first out FIFO queue Words after the "
                        "members belong to the class"},
                       {"asyncio.Queue.join", "Block until all items are processed"},
                       {"asyncio.Queue.put", "Put an item"},
                       {"asyncio.tasks.gather", ""},
                       {"asyncio.tasks.sleep", "Sleep"},
                       {"TimeoutError", "Timed out"}}));
}

// Roles keep their targets or titles, markup goes, other directives' bodies stay; a member
// written after its class's directive ended stands in the module, not in the class the page
// documented last (linking finds its class); the text is capped.
TEST(RestDirectives, BodiesAreThePlainWordsAndCapped) {
  auto names = names_of(R"(.. currentmodule:: django.db.models.query

.. class:: QuerySet

.. method:: union(*other_qs, all=False)

    Uses SQL's ``UNION`` to combine, see :meth:`~QuerySet.intersection` and
    :ref:`the combinators <combinators>`. **Bold** and *emphasis*.

    .. versionadded:: 3.1

        Newly added::

            >>> qs1.union(qs2)
)");
  EXPECT_EQ(names.count("django.db.models.query.QuerySet.union"), 0U);
  EXPECT_EQ(names["django.db.models.query.union"],
            "Uses SQL s UNION to combine see QuerySet intersection and the combinators Bold "
            "and emphasis Newly added qs1 union qs2");

  std::string long_body = ".. function:: f()\n\n";
  for (int i = 0; i < 200; ++i) long_body += "   word" + std::to_string(i) + "\n";
  auto capped = names_of(long_body)["f"];
  EXPECT_EQ(std::count(capped.begin(), capped.end(), ' ') + 1, static_cast<long>(MAX_WORDS));

  EXPECT_TRUE(is_reference_page("Doc/library/asyncio.rst"));
  EXPECT_TRUE(is_reference_page("docs/ref/models/querysets.txt"));
  EXPECT_FALSE(is_reference_page("setup.py"));
  EXPECT_TRUE(names_of("Just a README.\n\n.. note:: not Python\n").empty());
  EXPECT_FALSE(has_python_directive("Just a README.\n\n.. note:: not Python\n"));
  EXPECT_TRUE(has_python_directive("Intro\n\n   .. py:method:: Queue.join()\n"));
  EXPECT_TRUE(has_python_directive(".. currentmodule:: pkg"));
}

}  // namespace
