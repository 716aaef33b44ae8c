#include <string>

#include "values.h"

namespace vals {

bool reference() { return DefaultValue<const int&>::Exists(); }
bool pointer_to_const() { return DefaultValue<const char*>::Exists(); }
bool constant() { return DefaultValue<const std::string>::Exists(); }
bool array() { return DefaultValue<int[3]>::Exists(); }
bool plain() { return DefaultValue<int>::Exists(); }
template <typename R>
bool dependent() { return DefaultValue<R>::Exists(); }

}  // namespace vals
