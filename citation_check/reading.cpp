#include "reading.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <span>

#include "python/error.h"
#include "python/text.h"
#include "python/wide.h"

namespace citation_check {

using confined::Location;
using py::Borrowed;
using py::Ref;
using py::steal;

namespace {

// Runs a system operation until no signal interrupts it; an exception from a signal's handler passes through.
template <class Operation>
auto without_lock(Operation operation) {
    while (true) {
        errno = 0;
        auto result = [&] {
            const py::WithoutLock released;
            return operation();
        }();
        if (result || errno != EINTR) return result;
        py::check_signals();
    }
}

// The bytes that the system knows a path by; nothing for what is no path.
std::optional<std::string> system_path(Borrowed path) {
    PyObject* converted = nullptr;
    if (py::api(PyUnicode_FSConverter, path.get(), static_cast<void*>(&converted)) == 0) {
        const bool is_no_path = PyErr_ExceptionMatches(PyExc_TypeError) || PyErr_ExceptionMatches(PyExc_ValueError);
        if (!is_no_path) throw py::Error{};
        py::api(PyErr_Clear);
        return {};
    }
    const Ref bytes = py::take(converted);
    return std::string(PyBytes_AS_STRING(bytes.get()), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes.get())));
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
bool is_ascii_text(std::span<const char> bytes) {
    namespace wide = py::wide;
    const auto* const data = reinterpret_cast<const Py_UCS1*>(bytes.data());
    std::size_t at = 0;
    for (; at + wide::size <= bytes.size(); at += wide::size) {
        const wide::Bytes part = wide::load(data + at);
        if (wide::any((part & 0x80) | wide::equal(part, '\r'))) return false;
    }
    return std::all_of(data + at, data + bytes.size(), [](Py_UCS1 byte) { return byte < 0x80 && byte != '\r'; });
}

// The text of a regular file, which is read straight into the text that it most likely is; empty when it cannot be
// read.
Ref read_text(const Location& location) {
    Ref text = steal(PyUnicode_New(static_cast<Py_ssize_t>(location.size), 0x7f));
    auto* const data = static_cast<char*>(PyUnicode_DATA(text.get()));
    // The byte of the final NUL is read into as well: when it is filled, the file has grown. The empty text is shared
    // and has no room.
    const std::span<char> room(data, location.size == 0 ? 0 : location.size + 1);
    const auto filled = without_lock([&] { return confined::read_into(location, room); });
    if (!filled) return {};
    if (*filled == room.size()) {
        auto bytes = without_lock([&] { return confined::read_all(location); });
        return bytes ? decode(*bytes) : Ref();
    }
    data[location.size] = '\0';
    const std::span<char> bytes = room.first(*filled);
    return *filled == location.size && is_ascii_text(bytes) ? std::move(text) : decode(bytes);
}

// Reads a located file when it lies in `root`, after the event that `open` raises for every file before it tries to
// open it. What a hook raises passes through.
Ref read_located(State& state, const Location* location, Borrowed shown_path, const std::string& root) {
    py::check(py::api(PySys_Audit, "open", "Osi", shown_path.get(), "r", O_RDONLY | O_CLOEXEC));
    if (location == nullptr || !location->is_regular || !confined::is_inside(location->path, root)) {
        return py::borrow(state.names.empty);
    }
    Ref text = read_text(*location);
    return text ? std::move(text) : py::borrow(state.names.empty);
}

template <class Body>
Ref empty_on_os_error(State& state, Body body) {
    return py::try_except(PyExc_OSError, body, [&](const py::Handled&) { return py::borrow(state.names.empty); });
}

bool are_unpatched(State& state, std::initializer_list<Kept> kept) {
    return std::ranges::all_of(kept, [&](Kept which) { return state.kept(which).is_unpatched(); });
}

// Whether what a path has under the name of a reading method is the library's own method.
bool is_library_method(const py::Original& reading, Borrowed path, Borrowed method, Borrowed name) {
    return PyMethod_Check(method.get()) && path.is(PyMethod_GET_SELF(method.get())) &&
           reading.attribute(name).is(PyMethod_GET_FUNCTION(method.get()));
}

// Whether calling a path's `read_text` leads to `io.open` by the library's own methods alone.
bool is_read_by_library(State& state, Borrowed path, Borrowed read_text) {
    const py::Original& reading = state.kept(Kept::path_reading);
    if (!are_unpatched(state, {Kept::path_reading, Kept::io, Kept::io_of_pathlib})) return false;
    if (!is_library_method(reading, path, read_text, state.names.read_text)) return false;
    return is_library_method(reading, path, py::attr(path, state.names.open), state.names.open);
}

// Whether joining, resolving and testing a path of this class is all the library's own work, which no tracer sees.
bool is_resolved_by_library(State& state, Borrowed path) {
    if (!state.kept(Kept::path).is_untraced(reinterpret_cast<PyObject*>(path.type()))) return false;
    return are_unpatched(
        state, {Kept::os, Kept::os_path, Kept::path_of_os, Kept::os_of_pathlib, Kept::io, Kept::io_of_pathlib});
}

// The root's own path. A subclass of `Path` may have a text of its own, which reading does not ask for.
std::optional<std::string> root_path(State& state, Borrowed root) {
    const py::Original& own_type = state.kept(Kept::path);
    const py::Original& type = state.kept(Kept::path_reading);
    const bool is_path = own_type.is_unpatched() && type.is_unpatched() &&
                         PyType_IsSubtype(root.type(), reinterpret_cast<PyTypeObject*>(type.object().get())) != 0;
    return system_path(is_path ? py::call(own_type.attribute(state.names.str_dunder), root) : py::borrow(root));
}

}  // namespace

std::optional<CitedFile> locate_in_one_step(State& state, Borrowed root, Borrowed path) {
    if (!py::text::is_plain(path) || !is_resolved_by_library(state, root)) return {};
    auto inside = root_path(state, root);
    const auto cited = system_path(path);
    if (!inside || !cited) return {};
    const std::string joined = cited->starts_with('/') ? *cited : *inside + '/' + *cited;
    auto location = without_lock([&] { return confined::locate(joined); });
    if (!location) return {};
    return CitedFile{std::move(*location), std::move(*inside)};
}

Ref read_file(State& state, const CitedFile& file, Borrowed root) {
    if (!is_resolved_by_library(state, root)) return {};
    const std::string& path = file.location.path;
    if (!confined::is_inside(path, file.root)) return py::borrow(state.names.empty);
    const auto size = static_cast<Py_ssize_t>(path.size());
    const Ref shown = steal(py::api(PyUnicode_DecodeFSDefaultAndSize, path.data(), size));
    return empty_on_os_error(state, [&] { return read_located(state, &file.location, shown, file.root); });
}

Ref read_target(State& state, Borrowed target, Borrowed root) {
    const auto& names = state.names;
    return empty_on_os_error(state, [&] {
        const Ref read_text = py::attr(target, names.read_text);
        if (!is_read_by_library(state, target, read_text)) {
            const Ref keywords = py::tuple_of(names.encoding, names.errors);
            return py::call_with(read_text, keywords.get(), names.utf_8, names.replace);
        }
        const Ref shown = steal(py::api(PyOS_FSPath, target.get()));
        const auto path = system_path(shown);
        const auto inside = root_path(state, root);
        const auto location = without_lock([&] { return path && inside ? confined::locate(*path) : std::nullopt; });
        return read_located(state, location ? &*location : nullptr, shown, inside.value_or(""));
    });
}

}  // namespace citation_check
