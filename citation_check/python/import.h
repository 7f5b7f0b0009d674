#pragma once

#include <initializer_list>

#include "module.h"

// Import statements of the module's own body, as the interpreter carries them out.
namespace py {

// `import name`, for a module that is no submodule
void import_module(const Module& module, const char* name);

// `from source import name, ...`: ImportError for a name that is not there.
void import_names(const Module& module, const char* source, std::initializer_list<const char*> names);

}  // namespace py
