#include <initializer_list>
#include <string>

namespace match {

template <typename T, int N>
int ElementsAreArray(const T (&array)[N]) {
  return N;
}

template <typename Container>
int ElementsAreArray(const Container& container) {
  return container.size();
}

template <typename T>
int ElementsAreArray(std::initializer_list<T> xs) {
  return xs.size();
}

template <typename T = std::string>
bool StrNe(const T& str) {
  return str.empty();
}

inline bool StrNe(const std::wstring& str) {
  return str.empty();
}

inline bool Named(const std::string& name) {
  return name.empty();
}

inline bool Named(const char* name) {
  return name == nullptr;
}

}  // namespace match
