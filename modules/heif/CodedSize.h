#pragma once

#include "peximage/platform/codecs/CodecModule.h"

namespace pex::heif {

/// Whether all pictures in a file are coded in no more pixels than the limits allow, as the parameter sets in
/// front of them and among them say. The container's own word on their size is not asked: a decoder does not
/// believe it either. The whole file should be in memory.
bool codedSizesFit(const CodecModule::Input& file, const CodecModule::Limits& limits);

/// Whether the pictures that are made of other pictures come to an end: none is made of itself, by whatever
/// detour, and together they take no more pictures to decode than honest files have.
bool derivationsEnd(const CodecModule::Input& file);

} // namespace pex::heif
