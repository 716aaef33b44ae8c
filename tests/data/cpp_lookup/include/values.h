#pragma once

namespace vals {

template <typename T>
class DefaultValue {
 public:
  static bool Exists() { return true; }
};

template <typename T>
class DefaultValue<T&> {
 public:
  static bool Exists() { return false; }
};

template <typename T>
class DefaultValue<const T> {
 public:
  static bool Exists() { return false; }
};

template <typename T>
class DefaultValue<T*> {
 public:
  static bool Exists() { return false; }
};

template <class Element, int N>
class DefaultValue<Element[N]> {
 public:
  static bool Exists() { return false; }
};

}  // namespace vals
