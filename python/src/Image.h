#pragma once

#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/codecs/ImageMetadata.h"

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace pexpy {

class Image;

/// A picture of which a part is missing: thrown once its decoding has shown that.
struct CutPicture {
    std::shared_ptr<const Image> rest; // what is there; the same operations work on it
    double fraction;
    std::string file; // empty where it came from no file
};

/// A picture as Python holds it: an immutable value whose copies share one state. Of a file only the header
/// is read until pixels are needed. Any thread; the interpreter's lock is not needed.
class Image {
  public:
    using Picture = std::shared_ptr<pex::PexImage>;

    /// Throws Failure when the file or the bytes are no picture.
    static Image ofFile(const std::string& path);
    static Image ofBytes(pex::Data bytes);
    explicit Image(Picture picture, pex::ImageMetadata metadata = {});

    /// Upright, in pixels.
    pex::CGSize size() const;
    /// "L", "RGB" or "RGBA".
    std::string mode() const;
    /// The file's header; null for a picture that was made.
    const pex::CGImageSource* source() const;

    /// What the file that it comes from says beside the pixels, be it through operations; read when asked
    /// for.
    pex::ImageMetadata metadata() const;

    /// The picture, read now if it was not yet. Throws Failure when that fails.
    Picture picture() const;
    /// Its bitmap; throws Failure for a picture without pixels.
    pex::CGImage bitmap() const;
    /// The picture that an operation makes of this one. Throws Failure, with the library's reason or else
    /// `what`, when it makes none, and as `checkWhole`.
    Image changed(const std::function<Picture(pex::PexImage&)>& operation, const std::string& what) const;
    /// A picture that has this one's metadata.
    Image derived(Picture picture) const;

    /// Pixels that an array can show as they lie: grey, R G B x or straight R G B A. Decoded or converted at
    /// the first call, and kept.
    pex::CGImage arrayBitmap() const;

    /// Throws CutPicture when decoding found a part of the picture missing, but not for the rest that such an
    /// exception carries.
    void checkWhole() const;

  private:
    struct State {
        std::string path;
        std::shared_ptr<const pex::CGImageSource> source;
        std::shared_ptr<const pex::CGImageSource> origin; // whose metadata it has
        pex::ImageMetadata metadata;                      // where it has no origin
        bool allowsCut = false;
        std::mutex mutex;
        Picture picture;                   // null until it is needed
        std::optional<pex::CGImage> array; // as arrays need it
    };
    explicit Image(std::shared_ptr<State> state) : state_(std::move(state)) {}

    std::shared_ptr<State> state_;
};

} // namespace pexpy
