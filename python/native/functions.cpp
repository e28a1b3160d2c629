#include "functions.h"

#include <dlfcn.h>

#include <stdexcept>

namespace orvel::python {

bool hasLibraryInside() noexcept {
#ifdef ORVEL_PYTHON_LIBRARY_INSIDE
  return true;
#else
  return false;
#endif
}

Functions loadFunctions(const std::string& file) {
  Functions functions;
  if (file.empty()) {
#ifdef ORVEL_PYTHON_LIBRARY_INSIDE
#define ORVEL_PYTHON_TAKE(name) functions.name = &::name;
    ORVEL_PYTHON_FUNCTIONS(ORVEL_PYTHON_TAKE)
#undef ORVEL_PYTHON_TAKE
    return functions;
#else
    throw std::runtime_error("no library inside");
#endif
  }
  void* library = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) throw std::runtime_error(dlerror());
#define ORVEL_PYTHON_FIND(name)                                                       \
  functions.name = reinterpret_cast<decltype(functions.name)>(dlsym(library, #name)); \
  if (functions.name == nullptr)                                                      \
    throw std::runtime_error("the ORVEL library " + file + " is too old: it has no " #name);
  ORVEL_PYTHON_FUNCTIONS(ORVEL_PYTHON_FIND)
#undef ORVEL_PYTHON_FIND
  return functions;
}

}  // namespace orvel::python
