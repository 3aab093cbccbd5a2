#pragma once

#include "peximage/image/PexImage.h"
#include "peximage/platform/varda/PexCache.h"

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The pictures that a viewer goes through, loaded in the background. Used on the main thread, where it calls
/// back; may go away while pictures are on the way.
class Album : public std::enable_shared_from_this<Album> {
  public:
    /// A picture made ready for the screen.
    struct Ready {
        /// Null when there is none; then the reason.
        std::shared_ptr<pex::NSImage> image;
        std::string problem{};
        /// The size of the whole picture, in pixels.
        pex::CGSize size{};
        double milliseconds = 0;
    };
    using Receive = std::function<void(std::size_t index, const Ready& ready)>;

    /// Files and addresses.
    explicit Album(std::vector<std::string> items) : items_(std::move(items)) {}

    std::size_t count() const { return items_.size(); }
    const std::string& item(std::size_t index) const { return items_[index]; }
    /// What the item is called: the file's name.
    std::string name(std::size_t index) const;
    bool isRemote(std::size_t index) const;
    /// The size in pixels of a local file, read from its header at once; absent when that fails.
    std::optional<pex::CGSize> sizeFromHeader(std::size_t index) const;
    /// What to show until a picture is there: the desktop's icon for files of this name.
    std::shared_ptr<pex::PexImage> placeholder(std::size_t index, double side) const;

    /// Calls back with the picture, reduced to fit into so many pixels: at once if it was made
    /// before, else when it is loaded.
    void load(std::size_t index, pex::CGSize pixels, Receive receive);
    /// The same with all its pixels, which are not kept here.
    void loadWhole(std::size_t index, const Receive& receive);
    /// Names the item that is on show.
    void setWanted(std::size_t index) { *wanted_ = index; }

  private:
    struct Kept;
    /// The callers who wait for a picture that is being loaded.
    struct Waiting {
        pex::CGSize pixels;
        Receive receive;
    };

    void finish(std::size_t index, pex::CGSize pixels, const Ready& ready);
    std::function<bool()> stillWanted(std::size_t index) const;

    std::vector<std::string> items_;
    /// The item asked for last. Items that are not its neighbours are no longer loaded.
    std::shared_ptr<std::atomic<std::size_t>> wanted_ = std::make_shared<std::atomic<std::size_t>>(0);
    std::map<std::size_t, std::vector<Waiting>> waiting_;
    /// Reduced pictures, the least recently seen ones dropped.
    pex::PexCache kept_{std::size_t{128} << 20};
};
