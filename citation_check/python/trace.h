#pragma once

#include "function.h"

namespace py {

// While this lives, a native function runs on this thread, and what fails is traced to it.
class Running {
  public:
    explicit Running(const FunctionRow& row) noexcept;
    Running(const Running&) = delete;
    Running& operator=(const Running&) = delete;
    ~Running();

  private:
    const FunctionRow* outer_;
};

}  // namespace py
