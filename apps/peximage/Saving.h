#pragma once

#include "Batch.h"
#include "Files.h"
#include "Inputs.h"
#include "Options.h"
#include "Origin.h"

/// Writes the image to its destination, whole or not at all, with what it takes over from the file that it is
/// made of, and tells what was written; in a dry run, what would be.
Outcome saveImage(const Input& input, const std::shared_ptr<pex::PexImage>& image,
                  const Destination& destination, const WritingOptions& options, const Origin& origin = {});

/// The same of a file whose bytes are there already.
Outcome saveBytes(const Input& input, const pex::Data& bytes, pex::CGSize size,
                  const Destination& destination, const WritingOptions& options, const Origin& origin = {});

/// Whether --skip-existing leaves this result out.
bool isLeftOut(const Input& input, const std::filesystem::path& result, const WritingOptions& options);

using Image = std::shared_ptr<pex::PexImage>;
using Work = std::function<Outcome(const Input& input, const Destination& destination)>;

/// Expands the inputs, unless they are set, plans their results and works on each. The whole of a command
/// that writes one file for every input.
int runWriting(Settings& settings, const WritingOptions& options, const Work& work);

/// What is done to an image on its way; null where that fails.
using Change = std::function<Image(const Image&)>;

/// Opens an input, hands it to `change` and writes what that gives; a null image is the failure
/// `changeFailed`.
Outcome changeAndSave(const Input& input, const Destination& destination, const WritingOptions& options,
                      const Change& change, const std::string& changeFailed);

/// The same of every input.
int runChanging(Settings& settings, const WritingOptions& options, const Change& change,
                const std::string& changeFailed);
