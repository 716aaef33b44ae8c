#include <gtest/gtest.h>

#include <map>
#include <string>

#include "orvane_tamsel/indexer/extract.h"

namespace {

using namespace orvane_tamsel;

// Each symbol's name with its signature and docstring ("-" when it has none), of one file.
struct Said {
  std::string signature, doc;
};
std::map<std::string, Said> extracted(const std::string& path, const std::string& text) {
  const auto* lang = utils::language_for_path(path);
  auto file = indexer::extract(*lang, path, indexer::module_name(*lang, path, {}), text);
  std::map<std::string, Said> out;
  for (const auto& s : file.symbols) {
    if (s.kind != "module") out[s.name] = {s.signature.value_or("-"), s.docstring.value_or("-")};
  }
  return out;
}

// A type's signature is its header, as a function's is: members and their comments are its body,
// lone, grouped, generic or an alias.
TEST(Headers, GoTypesAreTheirHeaders) {
  auto go = extracted("http/client.go", R"(package http

// A Client is an HTTP client.
type Client struct {
	// Transport specifies the mechanism by which individual
	// HTTP requests are made.
	Transport RoundTripper

	Timeout time.Duration // zero means no timeout
}

// RoundTripper executes a single HTTP transaction.
type RoundTripper interface {
	RoundTrip(*Request) (*Response, error)
}

type (
	// A Header represents the key-value pairs in an HTTP header.
	Header map[string][]string

	// List holds values in order.
	List[T any] struct {
		items []T
	}
)

// ConnState represents the state of a client connection.
type ConnState = int

type HandlerFunc func(ResponseWriter,
	*Request)
)");
  EXPECT_EQ(go["Client"].signature, "type Client struct");
  EXPECT_EQ(go["Client"].doc, "A Client is an HTTP client.");
  EXPECT_EQ(go["RoundTripper"].signature, "type RoundTripper interface");
  EXPECT_EQ(go["Header"].signature, "type Header map[string][]string");
  EXPECT_EQ(go["Header"].doc, "A Header represents the key-value pairs in an HTTP header.");
  EXPECT_EQ(go["List"].signature, "type List[T any] struct");
  EXPECT_EQ(go["ConnState"].signature, "type ConnState = int");
  EXPECT_EQ(go["ConnState"].doc, "ConnState represents the state of a client connection.");
  EXPECT_EQ(go["HandlerFunc"].signature, "type HandlerFunc func(ResponseWriter, *Request)");
}

// A header written over several lines is one line: white space collapsed, comments and line
// continuations left out, defaults and annotations kept; the same in every language.
TEST(Headers, MultiLineHeadersAreOneLine) {
  auto py = extracted("shop/cart.py", R"(class Cart(Base,
           Mixin):
    def add(self,
            name: str,  # the item's name
            price=1, *,
            tax: float | None = None) -> int:
        return 0

def total(a, \
          b):
    pass

def render(
    template,
    context,
):
    pass
)");
  EXPECT_EQ(py["Cart"].signature, "class Cart(Base, Mixin)");
  EXPECT_EQ(py["add"].signature,
            "def add(self, name: str, price=1, *, tax: float | None = None) -> int");
  EXPECT_EQ(py["total"].signature, "def total(a, b)");
  EXPECT_EQ(py["render"].signature, "def render(template, context,)");

  auto c = extracted("lib/stdio2.h", R"(#ifndef	_BITS_STDIO2_H
# define obstack_printf(obstack, ...) \
  __obstack_printf_chk (obstack, __USE_FORTIFY_LEVEL - 1, __VA_ARGS__)
#define	BUFSIZ	8192
static const unsigned long	default_size =
  8192;
int fprintf (FILE *__restrict __stream, /* the stream */
	     const char *__restrict __fmt, ...);
#endif
)");
  EXPECT_EQ(c["obstack_printf"].signature, "#define obstack_printf(obstack, ...) ...");
  EXPECT_EQ(c["BUFSIZ"].signature, "#define BUFSIZ ...");
  EXPECT_EQ(c["default_size"].signature, "static const unsigned long default_size");
  EXPECT_EQ(c["fprintf"].signature,
            "int fprintf (FILE *__restrict __stream, const char *__restrict __fmt, ...);");

  auto cpp = extracted("src/cart.cpp", R"(namespace shop {
int Cart::add(int price,  // in cents
              int count) {
  return price * count;
}
}
)");
  EXPECT_EQ(cpp["add"].signature, "int Cart::add(int price, int count)");
  auto java = extracted("src/main/java/shop/Cart.java", R"(package shop;
public class Cart
    extends Base {
  public int add(int price, // in cents
                 int count) { return 0; }
}
)");
  EXPECT_EQ(java["Cart"].signature, "public class Cart extends Base");
  EXPECT_EQ(java["add"].signature, "public int add(int price, int count)");
  auto rust = extracted("src/cart.rs", R"(pub fn add(price: u32, // in cents
           count: u32) -> u32 { price * count }
)");
  EXPECT_EQ(rust["add"].signature, "pub fn add(price: u32, count: u32) -> u32");
  auto ts = extracted("src/cart.ts", R"(export function add(price: number, /* cents */
                    count: number): number { return price * count; }
)");
  EXPECT_EQ(ts["add"].signature, "export function add(price: number, count: number): number");
  auto js = extracted("lib/cart.js", R"(function add(price, // in cents
             count) { return price * count; }
)");
  EXPECT_EQ(js["add"].signature, "function add(price, count)");
}

// A docstring is the comment block right above a declaration: not a section comment a blank
// line away, not the mark that closes a group or a block; rules and marks around the words go.
TEST(DocComments, OnlyTheBlockRightAbove) {
  auto cpp = extracted("src/facets.h", R"(#include <locale>
// Section: parsing

template <typename C>
class numpunct {
 public:
  ///@{
  /// Public typedefs
  typedef C char_type;
  ///@}
  typedef C cache_type;

  // }
  int after_closing_brace();

  // ---------------------------------------------------------------
  // Lookup.
  // ---------------------------------------------------------------
  int find(int key);
};
#define LIMIT 3
// Sums the parts.
int sum(int a, int b);

/*
** CAPI3REF: Result Codes
** Many functions return one of these.
*/
int result_code();

/**
 *  @brief  Numeric parsing.
 */
int parse();
)");
  EXPECT_EQ(cpp["numpunct"].doc, "-");
  EXPECT_EQ(cpp["char_type"].doc, "Public typedefs");
  EXPECT_EQ(cpp["cache_type"].doc, "-");
  EXPECT_EQ(cpp["after_closing_brace"].doc, "-");
  EXPECT_EQ(cpp["find"].doc, "Lookup.");
  EXPECT_EQ(cpp["sum"].doc, "Sums the parts.") << "a directive ends on its own line";
  EXPECT_EQ(cpp["result_code"].doc, "CAPI3REF: Result Codes\nMany functions return one of these.");
  EXPECT_EQ(cpp["parse"].doc, "Numeric parsing.");

  auto go = extracted("shop/cart.go", R"(package shop

// Section: sessions

// Open starts a session.
func Open() {}

// Helpers.

func helper() {}
)");
  EXPECT_EQ(go["Open"].doc, "Open starts a session.");
  EXPECT_EQ(go["helper"].doc, "-");
  auto rust = extracted("src/cart.rs",
                        "// Section: pricing\n\npub fn price() -> u32 { 1 }\n\n"
                        "/// A line of the cart.\n#[derive(Debug)]\npub struct Item;\n\n"
                        "// Section: totals\n\n#[inline]\npub fn total() -> u32 { 2 }\n");
  EXPECT_EQ(rust["price"].doc, "-");
  EXPECT_EQ(rust["Item"].doc, "A line of the cart.") << "attributes keep it attached";
  EXPECT_EQ(rust["total"].doc, "-");
  auto java = extracted("src/main/java/shop/Cart.java",
                        "package shop;\n// Section\n\npublic class Cart {}\n");
  EXPECT_EQ(java["Cart"].doc, "-");
  auto ts = extracted("src/cart.ts", "// Section\n\nexport function add(): number { return 1; }\n");
  EXPECT_EQ(ts["add"].doc, "-");
}

// An include guard names nothing a reader asks for; a macro that only looks like one does.
TEST(CExtraction, IncludeGuardsAreNoSymbols) {
  auto printf_h = extracted("printf.h", R"(/* Copyright notice.  */

#ifndef	_PRINTF_H

#define	_PRINTF_H	1
#include <features.h>
#ifndef NDEBUG
#define NDEBUG
#endif
int printf_size (FILE *__restrict __fp);
#endif
)");
  EXPECT_EQ(printf_h.count("_PRINTF_H"), 0u);
  EXPECT_EQ(printf_h.count("printf_size"), 1u);
  EXPECT_EQ(printf_h.count("NDEBUG"), 1u) << "not at the top: a setting";
  auto valued = extracted("limits.h", "#ifndef MB_LEN_MAX\n#define MB_LEN_MAX 16\n#endif\n");
  EXPECT_EQ(valued.count("MB_LEN_MAX"), 1u) << "a default value, not a guard";
  auto source = extracted("main.c", "#ifndef VERBOSE\n#define VERBOSE\n#endif\nint main(void);\n");
  EXPECT_EQ(source.count("VERBOSE"), 1u) << "a source file has no guard";
}

}  // namespace
