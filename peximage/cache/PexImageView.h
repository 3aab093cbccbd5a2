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

/// Shows an image on screen, with round corners and a border. It can be given an address instead of an image:
/// then it shows a placeholder until the image is fetched. Fetched images are kept for all views of the
/// process.
///
/// Setters may be called on any thread; content changes on the main thread (`XMain`). When two addresses are
/// set in quick succession, the image that arrives last is shown. A view may go away while its image is on
/// the way.
class PEX_EXPORT PexImageView : public NSImageView {
  public:
    /// Fetches this view's images. Null: nothing is fetched.
    std::shared_ptr<PexResourceDownloader> imageDownloader = PexResourceDownloader::make();

    /// Options of `make`: a new view.
    struct Frame {
        /// In points.
        CGRect frame;
    };
    /// A view in its frame, without content. Never null.
    static std::shared_ptr<PexImageView> make(const Frame& options);
    /// Options of `make`: a view that was stored in a document.
    struct Coder {
        /// A keyed document with the view's "frame", [[x, y], [width, height]].
        std::string coder;
    };
    /// Null when the text is no such document.
    static std::shared_ptr<PexImageView> make(const Coder& options);

    // The frame around the content. A new value runs `setup()` and has the view drawn anew.

    /// The radius of the round corners, in points; 6 at first.
    /// @{
    double radius() const { return radius_; }
    void setRadius(double radius);
    /// @}
    /// The width of the border, in points; 0 at first: none.
    /// @{
    double border() const { return border_; }
    void setBorder(double border);
    /// @}
    /// The border's colour; a transparent grey at first.
    /// @{
    NSColor borderColor() const { return borderColor_; }
    void setBorderColor(const NSColor& color);
    /// @}

    /// The value of one of the three above.
    using Value = std::variant<double, NSColor>;
    /// Sets one of the three by its name: "radius", "border" or "borderColor". False for another name, and
    /// for a value of the wrong kind.
    bool setValue(const Value& value, std::string_view forKey);
    /// Absent for another name.
    std::optional<Value> value(std::string_view forKey) const;

    /// Gives the view its layer, with the radius and the border.
    virtual void setup();
    /// `setup()`, and the whole view is drawn anew.
    virtual void update();
    void draw(const CGRect& dirtyRect) override;

    /// Shows the placeholder. Null stands for that of all views; if there is none either, nothing changes.
    void setPlaceholder(const std::shared_ptr<PexImage>& placeholder);

    /// Options of `setImage`.
    struct Placeholder {
        /// Shown until the image is there; null: the placeholder of all views.
        std::shared_ptr<PexImage> placeholder = {};
    };
    /// Shows the placeholder, as above, and then the image at the address. It comes from the cache of all
    /// views, or is fetched in the background through the downloader's copies on disk. Called on the main
    /// thread, the view is empty while it is fetched; called on another, it shows the placeholder. When there
    /// is no image at the address, the view stays so.
    void setImage(const std::optional<URL>& url, const Placeholder& options);
    /// An address as text, and what is shown until its image is there.
    struct HttpPath {
        /// The address; absent: the placeholder alone is shown.
        std::optional<std::string> httpPath;
        /// Shown until the image is there; null: the placeholder of all views.
        std::shared_ptr<PexImage> placeholder = {};
    };
    /// The same; a text that is no address shows the placeholder alone.
    void setImage(const HttpPath& source);
    using NSImageView::setImage;

    /// The images that all views have fetched, as `std::shared_ptr<PexImage>` under the paths of their
    /// addresses. Only whole pictures are kept.
    static PexCache& imageCache();
    /// @{
    /// The placeholder of all views; null at first. Any thread.
    static std::shared_ptr<PexImage> placeHolder();
    static void setPlaceHolder(std::shared_ptr<PexImage> placeholder);
    /// @}

  protected:
    /// For subclasses.
    explicit PexImageView(const CGRect& frame) : NSImageView(frame) {}

  private:
    void showChange();

    double radius_ = 6;
    double border_ = 0;
    NSColor borderColor_{0.5, 0.5, 0.5, 0};
};

/// Shows the image's platform image in the view, on the main thread. Does nothing when the image or the view
/// is null.
PEX_EXPORT void setImage(const std::shared_ptr<NSImageView>& view, const std::shared_ptr<PexImage>& image);
/// Looks up the application's image of a name now, and shows it on the main thread. The view is cleared when
/// there is no such image.
PEX_EXPORT void set(const std::shared_ptr<NSImageView>& view, std::string_view name);

} // namespace pex
