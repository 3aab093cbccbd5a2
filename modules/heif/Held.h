#pragma once

#include <libheif/heif.h>
#include <memory>

namespace pex::heif {

struct Free {
    void operator()(heif_context* context) const { heif_context_free(context); }
    void operator()(heif_image_handle* handle) const { heif_image_handle_release(handle); }
    void operator()(heif_image* image) const { heif_image_release(image); }
    void operator()(heif_encoder* encoder) const { heif_encoder_release(encoder); }
    void operator()(heif_encoding_options* options) const { heif_encoding_options_free(options); }
};
/// What the codec library hands out, freed with its last use.
template <class T>
using Held = std::unique_ptr<T, Free>;

} // namespace pex::heif
