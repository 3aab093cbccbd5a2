#include "Failure.h"

#include "Image.h"

#include <nanobind/nanobind.h>
#include <new>

namespace nb = nanobind;

namespace pexpy {
namespace {

/// File names need not be UTF-8; Python keeps their other bytes this way.
nb::object textOf(const std::string& text) {
    return nb::steal(
        PyUnicode_DecodeUTF8(text.data(), static_cast<Py_ssize_t>(text.size()), "surrogateescape"));
}

nb::object errors() { return nb::module_::import_("peximage._errors"); }

void raise(const nb::object& raised) {
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(raised.ptr())), raised.ptr());
}

} // namespace

void fail(const std::string& what, const std::string& file) {
    pex::Reason reason = pex::lastReason();
    if (!reason) reason = {pex::ReasonCode::cannotEncode, what};
    throw Failure(std::move(reason), file);
}

void failArgument(const std::string& what) { throw Failure({pex::ReasonCode::badArgument, what}, {}); }

bool setPythonError() {
    try {
        throw;
    } catch (const Failure& failure) {
        raise(errors().attr("_make")(static_cast<int>(failure.reason().code),
                                     textOf(failure.reason().message), textOf(failure.file())));
    } catch (const CutPicture& cut) {
        raise(errors().attr("_make_truncated")(nb::cast(*cut.rest), cut.fraction, textOf(cut.file)));
    } catch (const std::bad_alloc&) {
        raise(
            errors().attr("_make")(static_cast<int>(pex::ReasonCode::outOfMemory), "not enough memory", ""));
    } catch (...) {
        return false;
    }
    return true;
}

void registerFailures() {
    nb::register_exception_translator([](const std::exception_ptr& thrown, void*) {
        try {
            std::rethrow_exception(thrown);
        } catch (...) {
            if (!setPythonError()) throw;
        }
    });
}

} // namespace pexpy
