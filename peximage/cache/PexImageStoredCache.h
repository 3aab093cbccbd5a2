#pragma once

#include "peximage/image/PexImage.h"
#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/Enumeration.h"
#include "peximage/platform/varda/PexThreadSafeDictionary.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace pex {

/// Images on disk, one file an identifier, in a folder of their own inside the user's caches folder. They
/// outlive the application; files older than some days are deleted whenever a cache is made. What
/// `retrieveOrCalc` made during this run is kept in memory, too.
///
/// An identifier is the file's name as it is, without extension: path separators in it make folders inside
/// the cache's. One that would lead out of the folder, holds a zero byte, or has a part too long for the file
/// system names nothing: nothing is read or written for it. A cache whose name leads out of the caches
/// folder, or is the caches folder itself, holds nothing.
///
/// A file appears whole or not at all, also when other processes write to the same cache, or are killed while
/// they do. A file that is damaged counts as missing. What fails is not reported: the next request finds
/// nothing.
///
/// Shared by reference, by `make`. Safe from any thread. Subclasses can override the operations.
class PEX_EXPORT PexImageStoredCache : public std::enable_shared_from_this<PexImageStoredCache> {
  public:
    /// What files are written.
    enum class Mode {
        png,  ///< PNG, "png".
        heif, ///< JPEG at a quality of 0.75, "jpg": the name says what the mode once wrote.
    };

    const std::string name;
    const std::int64_t removeItemsAfterDays;
    const Mode mode;
    /// Images are reduced before they are stored so that their shorter side has at most so many pixels.
    const std::optional<std::int64_t> resizeMinSideToMax;
    /// What `retrieveOrCalc` made during this run, by identifier.
    PexThreadSafeDictionary<std::string, std::shared_ptr<PexImage>> cache;

    struct Settings {
        std::string name;
        std::int64_t removeItemsAfterDays;
        Mode mode;
        std::optional<std::int64_t> resizeMinSideToMax = {};
    };
    static std::shared_ptr<PexImageStoredCache> make(Settings settings);
    virtual ~PexImageStoredCache() = default;

    /// Where the image of an identifier is; its folder is made if it is missing. Absent for an identifier
    /// that names nothing.
    virtual std::optional<URL> imageUrl(std::string_view with) const;

    /// Stores the image in the background, in place of an earlier one. The image may be used and changed
    /// meanwhile: what is stored is what it is now.
    virtual void store(const std::shared_ptr<PexImage>& image, const std::string& withId);
    /// The same on this thread. False when nothing was stored; an earlier image is then still there.
    virtual bool storeNow(const std::shared_ptr<PexImage>& image, const std::string& withId);

    /// The stored image, decoded; null when there is none or it is damaged.
    virtual std::shared_ptr<PexImage> retrieveImage(const std::string& withId);

    struct ImageOrCalc {
        std::string imageWithId;
        /// Called at most once, on this thread, before the operation returns; may give null.
        std::function<std::shared_ptr<PexImage>()> calc;
    };
    /// The image from memory, else from disk, else newly made; a new one is kept in memory and stored in the
    /// background. Null when there was none to make, which is not remembered.
    virtual std::shared_ptr<PexImage> retrieveOrCalc(const ImageOrCalc& request);

    /// Deletes, in the background, the files that lie in the folder now and are older than
    /// `removeItemsAfterDays` days, whatever their format, and what saves that never ended left behind an
    /// hour ago or earlier.
    virtual void removeOldItems();
    /// The same on this thread; how many files are gone.
    virtual std::size_t removeOldItemsNow();

    /// What is stored in this cache's mode, sorted.
    std::vector<std::string> identifiers() const;

  protected:
    explicit PexImageStoredCache(Settings settings);

  private:
    std::optional<URL> folder() const;
    std::optional<URL> fileFor(std::string_view id) const;
    std::vector<URL> files() const;
};

template <>
struct Enumeration<PexImageStoredCache::Mode> {
    static constexpr bool capitalized = false;
    static constexpr std::array<EnumerationCase<PexImageStoredCache::Mode>, 2> cases{
        {{PexImageStoredCache::Mode::png, "png"}, {PexImageStoredCache::Mode::heif, "heif"}}};
};

} // namespace pex
