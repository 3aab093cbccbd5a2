#pragma once

#include "Saving.h"
#include "peximage/platform/codecs/LosslessJpeg.h"

#include <functional>
#include <optional>

/// Adds --lossless.
void addLosslessOption(CLI::App& command, bool& isWanted);
/// An option that only a new encoding can follow does not go with --lossless; throws UsageError.
void checkLossless(bool isWanted, const WritingOptions& options);

/// What is done to a picture of that size as it is seen.
using ChangeOfSize = std::function<pex::LosslessChange(pex::CGSize upright)>;

/// Writes a JPEG with the change made in its coefficients. Absent where it has to be encoded anew; if
/// `isWanted`, that is a failure.
std::optional<Outcome> savedWithoutLoss(const Input& input, const Destination& destination,
                                        const WritingOptions& options, bool isWanted,
                                        const ChangeOfSize& change);
