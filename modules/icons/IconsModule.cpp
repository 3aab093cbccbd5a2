#include "peximage/platform/toolkit/IconsModule.h"

#include "IconTheme.h"
#include "peximage/platform/foundation/Module.h"

#include <algorithm>
#include <cairo.h>
#include <cstring>
#include <gio/gio.h>
#include <librsvg/rsvg.h>
#include <memory>
#include <string_view>

namespace {

struct Unref {
    template <class Object>
    void operator()(Object* object) const {
        g_object_unref(object);
    }
};
template <class Object>
using Ref = std::unique_ptr<Object, Unref>;

/// The icon that an entry of the desktop's menu names: a path, or a theme's name. Empty when it has none.
std::string iconOfEntry(const char* path) {
    GKeyFile* entry = g_key_file_new();
    std::string icon;
    if (g_key_file_load_from_file(entry, path, G_KEY_FILE_NONE, nullptr) != FALSE) {
        char* const named = g_key_file_get_string(entry, "Desktop Entry", "Icon", nullptr);
        if (named != nullptr) icon = named;
        g_free(named);
    }
    g_key_file_free(entry);
    return icon;
}

Ref<GIcon> iconOfKind(const char* path) {
    const Ref<GFile> file(g_file_new_for_path(path));
    const Ref<GFileInfo> info(g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_ICON,
                                                G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
    GIcon* const known = info ? g_file_info_get_icon(info.get()) : nullptr;
    if (known != nullptr) return Ref<GIcon>(G_ICON(g_object_ref(known)));
    char* const type = g_content_type_guess(path, nullptr, 0, nullptr);
    Ref<GIcon> guessed(g_content_type_get_icon(type));
    g_free(type);
    return guessed;
}

std::vector<std::string> iconNames(const char* path) {
    const Ref<GIcon> icon = iconOfKind(path);
    std::vector<std::string> names;
    if (icon && G_IS_THEMED_ICON(icon.get())) {
        const char* const* const list = g_themed_icon_get_names(G_THEMED_ICON(icon.get()));
        for (const char* const* name = list; *name != nullptr; ++name)
            names.emplace_back(*name);
    }
    return names;
}

bool iconFile(const char* path, int side, char* icon, std::size_t capacity) {
    std::vector<std::string> names;
    std::string found;
    if (std::string_view(path).ends_with(".desktop")) {
        const std::string named = iconOfEntry(path);
        if (named.starts_with('/')) found = named;
        if (!named.empty()) names.push_back(named);
    }
    if (found.empty()) {
        const std::vector<std::string> ofKind = iconNames(path);
        names.insert(names.end(), ofKind.begin(), ofKind.end());
        found = findThemeIcon(names, side);
    }
    if (found.empty() || found.size() >= capacity) return false;
    std::memcpy(icon, found.c_str(), found.size() + 1);
    return true;
}

/// Cairo's pixels are words of A R G B.
void toRgba(const std::uint8_t* words, std::ptrdiff_t wordsPerRow, int width, int height,
            std::uint8_t* pixels, std::ptrdiff_t bytesPerRow) {
    for (int y = 0; y < height; ++y) {
        const std::uint8_t* from = words + y * wordsPerRow;
        std::uint8_t* to = pixels + y * bytesPerRow;
        for (int x = 0; x < width; ++x, from += 4, to += 4) {
            std::uint32_t argb = 0;
            std::memcpy(&argb, from, 4);
            to[0] = static_cast<std::uint8_t>(argb >> 16);
            to[1] = static_cast<std::uint8_t>(argb >> 8);
            to[2] = static_cast<std::uint8_t>(argb);
            to[3] = static_cast<std::uint8_t>(argb >> 24);
        }
    }
}

bool drawVector(const std::uint8_t* svg, std::size_t size, int width, int height, std::uint8_t* pixels,
                std::ptrdiff_t bytesPerRow) {
    const Ref<RsvgHandle> picture(rsvg_handle_new_from_data(svg, size, nullptr));
    if (!picture) return false;
    cairo_surface_t* const surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width, height);
    cairo_t* const context = cairo_create(surface);
    const RsvgRectangle viewport{0, 0, static_cast<double>(width), static_cast<double>(height)};
    bool drawn = rsvg_handle_render_document(picture.get(), context, &viewport, nullptr) != FALSE;
    cairo_destroy(context);
    cairo_surface_flush(surface);
    drawn = drawn && cairo_surface_status(surface) == CAIRO_STATUS_SUCCESS;
    if (drawn)
        toRgba(cairo_image_surface_get_data(surface), cairo_image_surface_get_stride(surface), width, height,
               pixels, bytesPerRow);
    cairo_surface_destroy(surface);
    return drawn;
}

constexpr pex::IconsModule functions{iconFile, drawVector};

} // namespace

extern "C" __attribute__((visibility("default")))
const pex::ModuleEntry pexModule{pex::IconsModule::version, &functions};
