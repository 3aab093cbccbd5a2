#pragma once

#include "peximage/platform/foundation/Reason.h"

#include <exception>
#include <string>

namespace pexpy {

/// Why an operation gave nothing, on its way to becoming a Python exception.
class Failure : public std::exception {
  public:
    Failure(pex::Reason reason, std::string file) : reason_(std::move(reason)), file_(std::move(file)) {}

    const char* what() const noexcept override { return reason_.message.c_str(); }
    const pex::Reason& reason() const { return reason_; }
    /// Empty where no file is concerned.
    const std::string& file() const { return file_; }

  private:
    pex::Reason reason_;
    std::string file_;
};

/// For right after an absent result, on the thread that got it: throws with the library's reason, or with
/// `what` where it gave none.
[[noreturn]] void fail(const std::string& what, const std::string& file = {});

/// Throws for arguments that make no sense together.
[[noreturn]] void failArgument(const std::string& what);

/// Makes of what was thrown a Python error of the classes in peximage/_errors.py; for a `catch` block, with
/// the interpreter's lock held. False for what is none of this package's.
bool setPythonError();

/// Has the functions of this module raise such errors.
void registerFailures();

} // namespace pexpy
