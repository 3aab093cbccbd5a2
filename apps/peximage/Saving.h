#pragma once

#include "Batch.h"
#include "Files.h"
#include "Options.h"
#include "Origin.h"

/// Writes the image to its destination, whole or not at all, with what it takes over from the file that it is
/// made of, and tells what was written.
Outcome saveImage(const std::string& input, const std::shared_ptr<pex::PexImage>& image,
                  const Destination& destination, const WritingOptions& options, const Origin& origin = {});

/// The same of a file whose bytes are there already.
Outcome saveBytes(const std::string& input, const pex::Data& bytes, pex::CGSize size,
                  const std::filesystem::path& path, const Origin& origin = {});

/// `planDestinations`; throws UsageError, too, where a byte budget goes with another format than JPEG.
std::vector<Destination> planResults(const Settings& settings, const WritingOptions& options);

/// What is done to an image on its way; null where that fails.
using Change = std::function<std::shared_ptr<pex::PexImage>(const std::shared_ptr<pex::PexImage>&)>;

/// Opens an input, hands it to `change` and writes what that gives; a null image is the failure
/// `changeFailed`.
Outcome changeAndSave(const std::string& input, const Destination& destination, const WritingOptions& options,
                      const Change& change, const std::string& changeFailed);

/// The same of every input.
int runChanging(const Settings& settings, const WritingOptions& options, const Change& change,
                const std::string& changeFailed);
