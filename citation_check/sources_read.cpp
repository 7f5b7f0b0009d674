#include "sources_read.h"

#include <fcntl.h>

#include <algorithm>

#include "confined.h"
#include "genuine.h"
#include "python/text.h"
#include "python/wide.h"

namespace citation_check {

using confined::Location;
using confined::Outcome;
using py::Borrowed;
using py::Module;
using py::Ref;
using py::steal;

namespace {

// Other threads may run while this lives.
class WithoutInterpreterLock {
  public:
    WithoutInterpreterLock() : state_(PyEval_SaveThread()) {}
    WithoutInterpreterLock(const WithoutInterpreterLock&) = delete;
    WithoutInterpreterLock& operator=(const WithoutInterpreterLock&) = delete;
    ~WithoutInterpreterLock() noexcept(false) {
        // Asking for the lock is where the interpreter ends a daemon thread.
        py::park_ended_thread();
        PyEval_RestoreThread(state_);
    }

  private:
    PyThreadState* state_;
};

// Runs a system operation until no signal interrupts it; an exception from a signal's handler passes through.
template <class Operation>
auto without_lock(Operation operation) -> decltype(operation().value) {
    while (true) {
        auto outcome = [&] {
            const WithoutInterpreterLock released;
            return operation();
        }();
        if (outcome.value || outcome.failure != confined::Failure::interrupted) return std::move(outcome.value);
        py::check(PyErr_CheckSignals());
    }
}

// The bytes that the system knows a path by; nothing for a text that is no path.
std::optional<std::string> system_path(Borrowed text) {
    const Ref bytes = py::take(PyUnicode_EncodeFSDefault(text.get()));
    if (!bytes) {
        if (!PyErr_ExceptionMatches(PyExc_UnicodeError)) throw py::Error{};
        PyErr_Clear();
        return {};
    }
    std::string path(PyBytes_AS_STRING(bytes.get()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get())));
    if (path.find('\0') != std::string::npos) return {};
    return path;
}

// Universal newlines: CR LF and CR become LF. In UTF-8, well formed or not, they are never part of another character.
std::span<char> translate_line_ends(std::span<char> bytes) {
    auto out = std::find(bytes.begin(), bytes.end(), '\r');
    for (auto in = out; in != bytes.end(); ++in) {
        const bool pair = *in == '\r' && in + 1 != bytes.end() && in[1] == '\n';
        if (!pair) *out++ = *in == '\r' ? '\n' : *in;
    }
    return {bytes.begin(), out};
}

// The text that the bytes of a file are; they may be changed on the way.
Ref decode(std::span<char> bytes) {
    const std::span<char> lines = translate_line_ends(bytes);
    return steal(PyUnicode_DecodeUTF8(lines.data(), static_cast<Py_ssize_t>(lines.size()), "replace"));
}

// Whether the bytes are the text already: ASCII without a CR.
bool is_plain_text(std::span<const char> bytes) {
    namespace wide = py::wide;
    const auto* const data = reinterpret_cast<const Py_UCS1*>(bytes.data());
    std::size_t at = 0;
    for (; at + wide::size <= bytes.size(); at += wide::size) {
        const wide::Bytes part = wide::load(data + at);
        if (wide::any((part & 0x80) | wide::equal(part, '\r'))) return false;
    }
    return std::all_of(data + at, data + bytes.size(), [](Py_UCS1 byte) { return byte < 0x80 && byte != '\r'; });
}

// Reads a file straight into the text that it most likely is; empty when it is longer by now, or cannot be read.
Ref read_expected(const Location& location, bool& unreadable) {
    Ref text = steal(PyUnicode_New(static_cast<Py_ssize_t>(location.size), 0x7f));
    auto* const data = static_cast<char*>(PyUnicode_DATA(text.get()));
    // The place of the final NUL takes the first byte too many.
    const auto filled = without_lock([&] { return confined::read_into(location, {data, location.size + 1}); });
    unreadable = !filled;
    if (unreadable || *filled > location.size) return {};
    data[location.size] = '\0';
    const std::span<char> bytes(data, *filled);
    return *filled == location.size && is_plain_text(bytes) ? std::move(text) : decode(bytes);
}

// The whole text of a regular file; the empty text when it cannot be read.
Ref read_file(const Module& module, const Location& location) {
    bool unreadable = false;
    // An empty text is one object for all, with no room for bytes; some files have more than they say.
    if (location.size != 0) {
        if (Ref text = read_expected(location, unreadable)) return text;
    }
    if (unreadable) return py::borrow(module.names.empty);
    auto bytes = without_lock([&] { return confined::read_all(location); });
    return bytes ? decode(*bytes) : py::borrow(module.names.empty);
}

// The event that `open` raises for every file, before it tries to open it; what a hook raises passes through.
void audit_open(Borrowed path) { py::check(PySys_Audit("open", "Osi", path.get(), "r", O_RDONLY | O_CLOEXEC)); }

Ref read_verified(const Module& module, const Location& location, const std::string& root) {
    const bool readable = location.is_regular && confined::is_inside(location.path, root);
    return readable ? read_file(module, location) : py::borrow(module.names.empty);
}

}  // namespace

Ref read_natively(Module& module, Borrowed root, Borrowed path) {
    if (!genuine::is_plain_path(module, root) || !py::text::is_exact(path)) return {};
    const auto inside = system_path(steal(PyObject_Str(root.get())));
    const auto cited = system_path(path);
    if (!inside || !cited) return {};
    const std::string joined = cited->starts_with('/') ? *cited : *inside + '/' + *cited;
    const auto location = without_lock([&] { return confined::locate(joined); });
    if (!location) return {};
    if (!confined::is_inside(location->path, *inside)) return py::borrow(module.names.empty);
    const Ref shown =
        steal(PyUnicode_DecodeFSDefaultAndSize(location->path.data(), static_cast<Py_ssize_t>(location->path.size())));
    return py::try_except(
        PyExc_OSError,
        [&] {
            audit_open(shown);
            return read_verified(module, *location, *inside);
        },
        [&](const py::Handled&) { return py::borrow(module.names.empty); });
}

Ref read_target(Module& module, Borrowed target, Borrowed root) {
    const auto& names = module.names;
    return py::try_except(
        PyExc_OSError,
        [&] {
            if (!genuine::is_plain_path(module, target) || !genuine::is_plain_path(module, root)) {
                const Ref read_text = py::attr(target, names.read_text);
                return py::call_with(read_text, module.keywords_read_text, names.utf_8, names.replace);
            }
            const Ref shown = steal(PyObject_Str(target.get()));
            const auto inside = system_path(steal(PyObject_Str(root.get())));
            const auto path = system_path(shown);
            audit_open(shown);
            if (!inside || !path) return py::borrow(names.empty);
            const auto location = without_lock([&] { return confined::locate(*path); });
            return location ? read_verified(module, *location, *inside) : py::borrow(names.empty);
        },
        [&](const py::Handled&) { return py::borrow(names.empty); });
}

}  // namespace citation_check
