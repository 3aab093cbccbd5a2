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

/// Keeps images on disk, one file for each identifier, in a folder of its own inside the user's caches
/// folder. They outlive the application. Whenever a cache is made, files older than some days are deleted.
/// Images that `retrieveOrCalc` made during this run are kept in memory, too.
///
/// An identifier is a file name without extension; path separators in it make folders inside the cache's
/// folder. Nothing is read or written for an identifier that leads out of the folder, holds a zero byte, or
/// has a part too long for the file system. A cache whose name leads out of the caches folder, or is that
/// folder itself, holds nothing.
///
/// A file appears whole or not at all, even if other processes write to the same cache or are killed while
/// they write. A damaged file counts as missing. A failed write is not reported: the next request simply
/// finds nothing.
///
/// Shared by reference, by `make`. Safe from any thread. Subclasses can override the operations.
class PEX_EXPORT PexImageStoredCache : public std::enable_shared_from_this<PexImageStoredCache> {
  public:
    /// What files are written.
    enum class Mode {
        png,  ///< PNG, "png".
        heif, ///< JPEG at a quality of 0.75, "jpg": the name says what the mode once wrote.
    };

    /// The name of the cache's folder inside the user's caches folder.
    const std::string name;
    /// Files older than so many days are deleted by `removeOldItems`.
    const std::int64_t removeItemsAfterDays;
    /// The format of the files that are written.
    const Mode mode;
    /// Images whose shorter side has more pixels are reduced to this before they are stored; absent: never.
    const std::optional<std::int64_t> resizeMinSideToMax;
    /// What `retrieveOrCalc` made during this run, by identifier.
    PexThreadSafeDictionary<std::string, std::shared_ptr<PexImage>> cache;

    /// Options of `make`, one for each of the fields above.
    struct Settings {
        /// The name of the cache's folder inside the user's caches folder.
        std::string name;
        /// Files older than so many days are deleted.
        std::int64_t removeItemsAfterDays;
        /// The format of the files that are written.
        Mode mode;
        /// The most pixels of a stored image's shorter side; absent: images are stored in their own size.
        std::optional<std::int64_t> resizeMinSideToMax = {};
    };
    /// A cache over its folder, from which old files are deleted in the background. Never null.
    static std::shared_ptr<PexImageStoredCache> make(Settings settings);
    virtual ~PexImageStoredCache() = default;

    /// Where the image of an identifier is; its folder is made if it is missing. Absent for an identifier
    /// that names nothing.
    virtual std::optional<URL> imageUrl(std::string_view with) const;

    /// Stores the image in the background, in place of an earlier one. The image is stored as it is now; it
    /// may be used and changed meanwhile.
    virtual void store(const std::shared_ptr<PexImage>& image, const std::string& withId);
    /// The same on this thread. False when nothing was stored; an earlier image is then still there.
    virtual bool storeNow(const std::shared_ptr<PexImage>& image, const std::string& withId);

    /// The stored image, decoded; null when there is none or it is damaged.
    virtual std::shared_ptr<PexImage> retrieveImage(const std::string& withId);

    /// Options of `retrieveOrCalc`.
    struct ImageOrCalc {
        /// The identifier of the image.
        std::string imageWithId;
        /// Called at most once, on this thread, before the operation returns; may give null.
        std::function<std::shared_ptr<PexImage>()> calc;
    };
    /// The image from memory, else from disk, else newly made; a new one is kept in memory and stored in the
    /// background. Null when there was none to make, which is not remembered.
    virtual std::shared_ptr<PexImage> retrieveOrCalc(const ImageOrCalc& request);

    /// Deletes, in the background, all files of any format in the folder that are older than
    /// `removeItemsAfterDays` days, and temporary files that a killed process left behind more than an hour
    /// ago.
    virtual void removeOldItems();
    /// The same on this thread. Gives the number of deleted files.
    virtual std::size_t removeOldItemsNow();

    /// The identifiers of all files of this cache's format, sorted.
    std::vector<std::string> identifiers() const;

  protected:
    /// For subclasses; `make` deletes old files, too.
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
