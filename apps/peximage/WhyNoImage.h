#pragma once

#include "Settings.h"

#include <string>

/// Why a file cannot be opened as an image.
Failure whyNoImage(const std::string& path);
