#include "peximage/platform/varda/SettingsStore.h"

#include "peximage/platform/foundation/AtomicFile.h"
#include "peximage/platform/foundation/Data.h"
#include "peximage/platform/foundation/DocumentTree.h"
#include "peximage/platform/foundation/FolderLock.h"
#include "peximage/platform/foundation/Reason.h"
#include "peximage/platform/foundation/UserFolders.h"
#include "peximage/platform/varda/FileUtilities.h"
#include "peximage/platform/varda/StoredName.h"

#include <algorithm>
#include <filesystem>
#include <utility>

namespace pex {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view documentExtension = ".json";
constexpr std::string_view currentName = ".current"; // no stored name begins with a dot

/// A file's content, or none; absent when the file exists but cannot be read.
std::optional<SettingsStore::Stored> contents(const URL& file) {
    SettingsStore::Stored stored{.text = {}, .version = {file.path(), {}}};
    const std::optional<Data> data = Data::contentsOf(file, DocumentLimits().bytes);
    if (data) {
        stored.text = data->text();
        stored.version.bytes = std::hash<std::string_view>()(data->text());
    }
    if (!data && lastReason().code != ReasonCode::noSuchFile) return std::nullopt;
    return stored;
}

bool replace(const URL& file, std::string_view text) {
    return AtomicFile::save(file.path(), Data(text).bytes(), AtomicFile::Flush::yes);
}

} // namespace

SettingsStore::SettingsStore(std::string_view appName, const std::optional<std::string>& subSettings) {
    if (const std::optional<URL> data = userDataFolder())
        folder_ = data->appendingPathComponent("PexImage")
                      .appendingPathComponent(storedPath(appName))
                      .appendingPathComponent(subSettings ? "sub/" + storedPath(*subSettings) : "main");
}

std::optional<URL> SettingsStore::file(std::string_view configuration, std::string_view extension) const {
    if (!folder_) {
        giveReason(ReasonCode::noSuchFile, "the user has no folder for data");
        return std::nullopt;
    }
    return folder_->appendingPathComponent(storedPath(configuration) + std::string(extension));
}

std::optional<SettingsStore::Version>
SettingsStore::write(std::string_view configuration, std::string_view document, const Judge& judge) const {
    const std::optional<URL> target = file(configuration, documentExtension);
    if (!target) return std::nullopt;
    if (document.size() > DocumentLimits().bytes) {
        giveReason(ReasonCode::overLimit, "the document is too long to be read again");
        return std::nullopt;
    }
    const FolderLock lock(folder_->path());
    const std::optional<Stored> old = lock ? contents(*target) : std::nullopt;
    if (!old || (old->text && !keep(configuration, *old, judge(*old)))) return std::nullopt;
    AtomicFile::removeStale(target->deletingLastPathComponent().path());
    if (!replace(*target, document)) return std::nullopt;
    return Version{target->path(), std::hash<std::string_view>()(document)};
}

/// False when the document must stay where it is.
bool SettingsStore::keep(std::string_view configuration, const Stored& old, Fate fate) const {
    if (fate == Fate::goes) return true;
    if (fate == Fate::stays) {
        giveReason(ReasonCode::changedElsewhere, "what is stored is not what was read from there");
        return false;
    }
    const std::string name(configuration);
    for (int number = fate == Fate::staysAside ? 2 : 1;; ++number) {
        const std::string nth = std::to_string(number);
        const auto aside = fate == Fate::staysAside
                               ? file(name + ' ' + nth, documentExtension)
                               : file(name, number == 1 ? ".json.damaged" : ".json.damaged-" + nth);
        const std::optional<Stored> there = aside ? contents(*aside) : std::nullopt;
        if (!there || there->text == old.text) return there.has_value();
        if (!there->text) return replace(*aside, *old.text);
    }
}

std::optional<SettingsStore::Stored> SettingsStore::read(std::string_view configuration) const {
    const std::optional<URL> stored = file(configuration, documentExtension);
    return stored ? contents(*stored) : std::nullopt;
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

std::optional<std::string> SettingsStore::current() const {
    const std::optional<Stored> name =
        folder_ ? contents(folder_->appendingPathComponent(currentName)) : Stored();
    if (!name) return std::nullopt;
    return name->text && fu_fileExists(*file(*name->text, documentExtension)) ? *name->text : "Default";
}

bool SettingsStore::setCurrent(std::string_view configuration) const {
    if (!folder_) return false;
    const URL file = folder_->appendingPathComponent(currentName);
    const std::optional<Stored> name = contents(file);
    return (name && name->text == configuration) || replace(file, configuration);
}

} // namespace pex
