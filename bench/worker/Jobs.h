#pragma once

#include <functional>
#include <map>
#include <string>

namespace bench {

/// Does a job once and gives the size of the file that it made, or 0.
using Run = std::function<std::size_t()>;
/// Prepares what a job needs, which is not timed.
using Prepare = std::function<Run()>;

/// All jobs that run inside this process, by names such as "encode/12/ours". `folder` holds photo.jpg and its
/// decoded forms photo-WIDTH.ppm, and takes files that jobs write.
std::map<std::string, Prepare> jobs(const std::string& folder);

} // namespace bench
