#include "IconTheme.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <gio/gio.h>
#include <memory>
#include <system_error>

// What the index of an icon theme calls a directory is one size of its icons.

namespace fs = std::filesystem;

namespace {

struct FreeKeyFile {
    void operator()(GKeyFile* file) const { g_key_file_free(file); }
};
using KeyFile = std::unique_ptr<GKeyFile, FreeKeyFile>;

struct FreeText {
    void operator()(char* text) const { g_free(text); }
};

std::string textOf(GKeyFile* file, const char* group, const char* key) {
    const std::unique_ptr<char, FreeText> text(g_key_file_get_string(file, group, key, nullptr));
    return text ? text.get() : "";
}

std::vector<std::string> listOf(GKeyFile* file, const char* group, const char* key) {
    char** const items = g_key_file_get_string_list(file, group, key, nullptr, nullptr);
    std::vector<std::string> list;
    for (char** item = items; item != nullptr && *item != nullptr; ++item)
        list.emplace_back(*item);
    g_strfreev(items);
    return list;
}

int numberOf(GKeyFile* file, const char* group, const char* key, int otherwise) {
    GError* error = nullptr;
    const int number = g_key_file_get_integer(file, group, key, &error);
    if (error == nullptr) return number;
    g_error_free(error);
    return otherwise;
}

/// Where themes lie, the user's own first.
std::vector<fs::path> iconFolders() {
    std::vector<fs::path> folders{fs::path(g_get_user_data_dir()) / "icons",
                                  fs::path(g_get_home_dir()) / ".icons"};
    for (const char* const* folder = g_get_system_data_dirs(); *folder != nullptr; ++folder)
        folders.push_back(fs::path(*folder) / "icons");
    return folders;
}

/// The theme that the user chose; empty where no desktop says.
std::string chosenTheme() {
    constexpr const char* schemaName = "org.gnome.desktop.interface";
    GSettingsSchemaSource* source = g_settings_schema_source_get_default();
    GSettingsSchema* schema =
        source != nullptr ? g_settings_schema_source_lookup(source, schemaName, TRUE) : nullptr;
    if (schema == nullptr) return {};
    std::string theme;
    if (g_settings_schema_has_key(schema, "icon-theme") != FALSE) {
        GSettings* settings = g_settings_new(schemaName);
        const std::unique_ptr<char, FreeText> text(g_settings_get_string(settings, "icon-theme"));
        theme = text.get();
        g_object_unref(settings);
    }
    g_settings_schema_unref(schema);
    return theme;
}

/// A theme's index, and the folders that it is spread over.
struct Theme {
    KeyFile index;
    std::vector<fs::path> folders;
};

Theme openTheme(const std::string& name) {
    Theme theme{KeyFile(g_key_file_new()), {}};
    g_key_file_set_list_separator(theme.index.get(), ',');
    bool known = false;
    for (const fs::path& base : iconFolders()) {
        std::error_code ignored;
        const fs::path folder = base / name;
        if (!fs::is_directory(folder, ignored)) continue;
        theme.folders.push_back(folder);
        const std::string index = (folder / "index.theme").string();
        known =
            known || g_key_file_load_from_file(theme.index.get(), index.c_str(), G_KEY_FILE_NONE, nullptr);
    }
    return theme;
}

/// How far the icons of a size are from `side` pixels.
int distance(GKeyFile* index, const std::string& size, int side) {
    const char* group = size.c_str();
    const int scale = std::clamp(numberOf(index, group, "Scale", 1), 1, 16);
    const int nominal = std::clamp(numberOf(index, group, "Size", 48), 1, 65536);
    const std::string type = textOf(index, group, "Type");
    int least = nominal, most = nominal;
    if (type == "Scalable") {
        least = std::clamp(numberOf(index, group, "MinSize", nominal), 1, 65536);
        most = std::clamp(numberOf(index, group, "MaxSize", nominal), 1, 65536);
    } else if (type != "Fixed") {
        const int threshold = std::clamp(numberOf(index, group, "Threshold", 2), 0, 65536);
        least -= threshold;
        most += threshold;
    }
    return std::max({least * scale - side, side - most * scale, 0});
}

std::string iconIn(const Theme& theme, const std::string& size, const std::string& name) {
    for (const fs::path& folder : theme.folders) {
        for (const char* extension : {".svg", ".png"}) {
            const fs::path file = folder / size / (name + extension);
            std::error_code ignored;
            if (fs::is_regular_file(file, ignored)) return file.string();
        }
    }
    return {};
}

std::string iconIn(const Theme& theme, const std::string& name, int side) {
    std::vector<std::pair<int, std::string>> sizes;
    for (const std::string& size : listOf(theme.index.get(), "Icon Theme", "Directories"))
        sizes.emplace_back(distance(theme.index.get(), size, side), size);
    std::stable_sort(sizes.begin(), sizes.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    for (const auto& [ignored, size] : sizes) {
        if (std::string file = iconIn(theme, size, name); !file.empty()) return file;
    }
    return {};
}

} // namespace

std::string findThemeIcon(const std::vector<std::string>& names, int side) {
    std::vector<std::string> pending{chosenTheme(), "Adwaita", "breeze", "hicolor"}, seen{""};
    while (!pending.empty()) {
        const std::string name = pending.front();
        pending.erase(pending.begin());
        if (std::find(seen.begin(), seen.end(), name) != seen.end()) continue;
        seen.push_back(name);
        const Theme theme = openTheme(name);
        for (const std::string& icon : names) {
            if (std::string file = iconIn(theme, icon, side); !file.empty()) return file;
        }
        const std::vector<std::string> inherited = listOf(theme.index.get(), "Icon Theme", "Inherits");
        pending.insert(pending.begin(), inherited.begin(), inherited.end());
    }
    return {};
}
