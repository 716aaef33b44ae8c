#pragma once

#include <vector>

namespace match {

template <typename T, int N>
int Each(const T (&array)[N]) {
  return N;
}
template <typename C>
int Each(const C& container) {
  return 0;
}
template <typename T>
int Each(const T* first, int count) {
  return count;
}

int Total(const int* xs, int n);

}  // namespace match
