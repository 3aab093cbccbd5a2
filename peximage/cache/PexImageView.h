#pragma once

#include "peximage/platform/Export.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/toolkit/NSColor.h"
#include "peximage/platform/toolkit/NSImageView.h"
#include "peximage/platform/varda/PexCache.h"
#include "peximage/platform/varda/PexResourceDownloader.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

namespace pex {

class PexImage;

/// An image on screen, with round corners and a border, that can be given an address instead of an image: it
/// shows a placeholder meanwhile, and keeps what was fetched for all views of the process.
///
/// Content is shown on the main thread (`XMain`), wherever a setter is called. When two addresses are asked
/// for in quick succession, the one that arrives last is shown. A view that goes away while its image is on
/// the way is forgotten.
class PEX_EXPORT PexImageView : public NSImageView {
  public:
    /// Fetches this view's images; without one none are.
    std::shared_ptr<PexResourceDownloader> imageDownloader = PexResourceDownloader::make();

    struct Frame {
        /// In points.
        CGRect frame;
    };
    static std::shared_ptr<PexImageView> make(const Frame& options);
    struct Coder {
        /// A keyed document with the view's "frame", [[x, y], [width, height]].
        std::string coder;
    };
    /// Null when the text is no such document.
    static std::shared_ptr<PexImageView> make(const Coder& options);

    // In points; another value than before runs `setup()` and has the view drawn anew.

    double radius() const { return radius_; }
    void setRadius(double radius);
    double border() const { return border_; }
    void setBorder(double border);
    NSColor borderColor() const { return borderColor_; }
    void setBorderColor(const NSColor& color);

    /// The three above by their names: "radius", "border", "borderColor". False for another name, and for a
    /// value of the wrong kind.
    using Value = std::variant<double, NSColor>;
    bool setValue(const Value& value, std::string_view forKey);
    /// Absent for another name.
    std::optional<Value> value(std::string_view forKey) const;

    /// Gives the view its layer, with the radius and the border.
    virtual void setup();
    /// `setup()`, and the whole view is drawn anew.
    virtual void update();
    void draw(const CGRect& dirtyRect) override;

    /// Shows the placeholder; without one that of all views; without that, too, nothing changes. May be null.
    void setPlaceholder(const std::shared_ptr<PexImage>& placeholder);

    struct Placeholder {
        std::shared_ptr<PexImage> placeholder = {};
    };
    /// Shows the placeholder, as above, and then what is at the address: from the cache of all views, else
    /// fetched in the background, through the downloader's copies on disk. While that lasts the view is empty
    /// when this is called on the main thread, and else shows the placeholder. An address without image
    /// changes nothing more.
    void setImage(const std::optional<URL>& url, const Placeholder& options);
    struct HttpPath {
        std::optional<std::string> httpPath;
        std::shared_ptr<PexImage> placeholder = {};
    };
    /// The same; a text that is no address shows the placeholder alone.
    void setImage(const HttpPath& source);
    using NSImageView::setImage;

    /// What any view has fetched whole, by the path of its address: `std::shared_ptr<PexImage>`.
    static PexCache& imageCache();
    /// The placeholder of all views; null at first. Any thread.
    static std::shared_ptr<PexImage> placeHolder();
    static void setPlaceHolder(std::shared_ptr<PexImage> placeholder);

  protected:
    explicit PexImageView(const CGRect& frame) : NSImageView(frame) {}

  private:
    void showChange();

    double radius_ = 6;
    double border_ = 0;
    NSColor borderColor_{0.5, 0.5, 0.5, 0};
};

/// Shows the image's platform image in the view, on the main thread. An absent image changes nothing, nor
/// does one for a null view.
PEX_EXPORT void setImage(const std::shared_ptr<NSImageView>& view, const std::shared_ptr<PexImage>& image);
/// Shows the application's image of a name, looked up now, on the main thread; one that it does not have
/// clears the view.
PEX_EXPORT void set(const std::shared_ptr<NSImageView>& view, std::string_view name);

} // namespace pex
