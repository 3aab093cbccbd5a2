#include "peximage/platform/varda/SettingsStore.h"

#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/DocumentTree.h"
#include "peximage/platform/foundation/UserFolders.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/StoredName.h"

#include <algorithm>
#include <filesystem>

namespace pex {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view documentExtension = ".json";
constexpr std::string_view currentName = ".current"; // no stored name begins with a dot

std::optional<std::string> contents(const std::optional<URL>& file) {
    if (!file) return std::nullopt;
    const std::optional<Data> data = Data::contentsOf(*file);
    if (!data) return std::nullopt;
    return std::string(data->text());
}

bool replace(const std::optional<URL>& file, std::string_view text) {
    return file && AtomicFile::save(file->path(), Data(text).bytes(), AtomicFile::Flush::yes);
}

} // namespace

SettingsStore::SettingsStore(std::string_view appName, const std::optional<std::string>& subSettings) {
    if (const std::optional<URL> data = userDataFolder())
        folder_ = data->appendingPathComponent("PexImage")
                      .appendingPathComponent(storedPath(appName))
                      .appendingPathComponent(subSettings ? "sub/" + storedPath(*subSettings) : "main");
}

std::optional<URL> SettingsStore::file(std::string_view configuration, std::string_view extension) const {
    if (!folder_) return std::nullopt;
    return folder_->appendingPathComponent(storedPath(configuration) + std::string(extension));
}

bool SettingsStore::write(std::string_view configuration, std::string_view document) const {
    if (document.size() > DocumentLimits().bytes) return false;
    return replace(file(configuration, documentExtension), document);
}

std::optional<std::string> SettingsStore::read(std::string_view configuration) const {
    return contents(file(configuration, documentExtension));
}

void SettingsStore::keepDamaged(std::string_view configuration, std::string_view document) const {
    const std::optional<URL> aside = file(configuration, ".json.damaged");
    if (contents(aside) != document) replace(aside, document);
}

bool SettingsStore::remove(std::string_view configuration) const {
    const std::optional<URL> stored = file(configuration, documentExtension);
    return stored && fu_fileExists(*stored) && fu_deleteFile(*stored);
}

std::vector<std::string> SettingsStore::configurations() const {
    std::vector<std::string> names;
    if (!folder_) return names;
    std::error_code error;
    const fs::path root = folder_->path();
    for (fs::recursive_directory_iterator entry(root, error), end; !error && entry != end;
         entry.increment(error)) {
        std::string path = entry->path().lexically_relative(root).string();
        if (!path.ends_with(documentExtension) || !fu_fileExists(URL::fromPath(entry->path().string())))
            continue;
        path.resize(path.size() - documentExtension.size());
        if (std::optional<std::string> name = nameOfStoredPath(path)) names.push_back(std::move(*name));
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::string SettingsStore::current() const {
    if (!folder_) return "Default";
    const std::optional<std::string> name = contents(folder_->appendingPathComponent(currentName));
    return name && fu_fileExists(*file(*name, documentExtension)) ? *name : "Default";
}

bool SettingsStore::setCurrent(std::string_view configuration) const {
    if (!folder_) return false;
    const URL file = folder_->appendingPathComponent(currentName);
    return contents(file) == configuration || replace(file, configuration);
}

} // namespace pex
