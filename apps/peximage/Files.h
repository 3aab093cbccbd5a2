#pragma once

#include "Settings.h"
#include "WhyNoImage.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/ImageFormat.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

/// Where the result of one input goes, and as what.
struct Destination {
    std::filesystem::path path;
    pex::ImageFormat format;
};

/// A destination for every input. One input and an `output` that is no folder: that file, in the format of
/// its extension. Else `output` is a folder, and every result keeps its input's base name, in `format` where
/// given, else the input's. Throws UsageError when names collide or an extension is not known.
std::vector<Destination> planDestinations(const std::vector<std::string>& inputs, const std::string& output,
                                          const std::optional<std::string>& format);

/// The image in a file, or one line that says why there is none.
std::variant<std::shared_ptr<pex::PexImage>, Failure> openImage(const std::string& path);

/// A result on its way: written under a temporary name in the destination's folder, and put in place by
/// `commit` when it is complete. What is not committed is removed.
class PendingFile {
  public:
    explicit PendingFile(const std::filesystem::path& destination);
    ~PendingFile();
    PendingFile(const PendingFile&) = delete;
    PendingFile& operator=(const PendingFile&) = delete;

    const std::filesystem::path& path() const { return temporary_; }
    /// Absent when all went well.
    std::optional<Failure> commit();
    /// Why writing to it failed, as far as that can be told afterwards.
    Failure whyNotWritten() const;

  private:
    std::filesystem::path destination_, temporary_;
};
