// A container after the shape of libstdc++'s headers: its namespaces open through macros.
#ifndef _STL_VECTOR_H
#define _STL_VECTOR_H 1

namespace std _GLIBCXX_VISIBILITY(default)
{
_GLIBCXX_BEGIN_NAMESPACE_VERSION
_GLIBCXX_BEGIN_NAMESPACE_CONTAINER

  template<typename _Tp>
    struct _Vector_base
    {
      _GLIBCXX20_CONSTEXPR
      _Vector_base() _GLIBCXX_NOEXCEPT { }
    };

  /// A standard container which offers fixed time access to individual elements.
  template<typename _Tp>
    class vector : protected _Vector_base<_Tp>
    {
    public:
      _GLIBCXX20_CONSTEXPR
      void
      push_back(const _Tp& __x) _GLIBCXX_NOEXCEPT_IF(noexcept(_Tp(__x)))
      { _M_realloc_insert(__x); }

    private:
      _GLIBCXX20_CONSTEXPR
      void
      _M_realloc_insert(const _Tp& __x);
    };

  template<typename _Alloc>
    class vector<bool, _Alloc>
    {
    public:
#if __cplusplus >= 201103L
      vector() = default;
#else
      vector() { }
#endif

      _GLIBCXX20_CONSTEXPR
      void
#if __cplusplus >= 201103L
      flip() noexcept
#else
      flip()
#endif
      { _M_flip_all(); }

      void _M_flip_all();
    };

_GLIBCXX_END_NAMESPACE_CONTAINER

_GLIBCXX_BEGIN_NAMESPACE_CXX11
  /// Managing sequences of characters.
  template<typename _CharT>
    class basic_string
    {
    public:
      _GLIBCXX_NODISCARD _GLIBCXX20_CONSTEXPR
      bool
      empty() const _GLIBCXX_NOEXCEPT
      { return size() == 0; }

      _GLIBCXX20_CONSTEXPR
      unsigned long
      size() const _GLIBCXX_NOEXCEPT
      { return 0; }
    };
_GLIBCXX_END_NAMESPACE_CXX11

namespace chrono
{
  inline namespace _V2
  {
    struct system_clock
    {
      static long now() noexcept;
    };
  }
}

_GLIBCXX_END_NAMESPACE_VERSION
} // namespace std

#endif
