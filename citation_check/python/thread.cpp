#include "thread.h"

#include <unistd.h>

namespace py {

void park() noexcept {
    while (true) pause();
}

void release_last(PyObject* object) noexcept {
    api([object] { Py_DECREF(object); });
}

}  // namespace py
