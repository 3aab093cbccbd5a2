// Runs this library's jobs and its peers' in one process, each when asked, so that they can be timed in
// turns.
//
//     bench-worker serve FOLDER                      answers requests on standard input
//     bench-worker decode PHOTO.jpg EIGHTHS OUT.ppm  makes the pictures that all resize
//     bench-worker resize ours|vips IN.ppm WIDTH HEIGHT OUT.ppm
//     bench-worker errors IN.ppm RESIZED.ppm         differences from double precision: inside, and anywhere
//     bench-worker resident A.jpg B.jpg COUNT        memory in use after 10 photos, and after so many
//     bench-worker qualities FOLDER                  how often the budget search and the plain one agree
//     bench-worker versions                          of the libraries, one a line
//
// A request is "JOB THREADS TIMES"; the answer is the milliseconds it took, those of processor time, and the
// size of the file made. A job that is to run several times runs once more before, and the answer is the
// mean.

#include "bench/worker/Jobs.h"
#include "bench/worker/Picture.h"
#include "bench/worker/PlainCodecs.h"
#include "bench/worker/Qualities.h"
#include "bench/worker/Resizing.h"
#include "peximage/image/PexImage.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/URL.h"
#include "peximage/platform/foundation/Workers.h"
#include "peximage/platform/raster/PixelBuffer.h"

#include <fmt/format.h>
#include <jpeglib.h>
#include <png.h>

#include <chrono>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <malloc.h>
#include <stdexcept>
#include <unistd.h>
#include <vector>
#include <vips/vips.h>

namespace {

using namespace bench;

/// Freed memory is kept and used again by everybody, so that work is compared and not the system's page
/// faults.
void keepMemoryWarm() {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    pex::pixelPool::setBound(std::size_t{1} << 30);
}

/// Of all threads of this process together.
double cpuMilliseconds() {
    timespec spent{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &spent);
    return double(spent.tv_sec) * 1e3 + double(spent.tv_nsec) / 1e6;
}

std::string timed(const Run& run, int times) {
    if (times > 1) run();
    const auto begin = std::chrono::steady_clock::now();
    const double cpuBegin = cpuMilliseconds();
    std::size_t bytes = 0;
    for (int i = 0; i < times; ++i)
        bytes = run();
    const std::chrono::duration<double, std::milli> spent = std::chrono::steady_clock::now() - begin;
    return fmt::format("{:.4f} {:.4f} {}", spent.count() / times, (cpuMilliseconds() - cpuBegin) / times,
                       bytes);
}

int serve(const std::string& folder) {
    keepMemoryWarm();
    vips_cache_set_max(0);
    const auto known = jobs(folder);
    std::map<std::string, Run> prepared;
    std::string job;
    for (int threads = 0, times = 0; std::cin >> job >> threads >> times;) {
        const pex::Workers::Limit control(threads);
        vips_concurrency_set(threads);
        if (!prepared.contains(job)) prepared[job] = known.at(job)();
        std::cout << timed(prepared[job], times) << std::endl;
    }
    return 0;
}

int resize(const std::vector<std::string>& words) {
    const Picture from = readPpm(words[2]);
    const int width = std::stoi(words[3]), height = std::stoi(words[4]);
    if (words[1] == "vips") {
        writePpm(resizeByVips(from, width, height), words[5]);
    } else {
        Picture four = withChannels(from, 4), to(width, height, 4);
        resizeByOurs(four, to);
        writePpm(to, words[5]);
    }
    return 0;
}

int printErrors(const std::string& from, const std::string& to) {
    const Errors errors = resizeErrors(readPpm(from), readPpm(to));
    std::cout << fmt::format("{:.4f} {:.4f}\n", errors.inside, errors.anywhere);
    return 0;
}

/// In units of 1,000,000 bytes.
double residentMegabytes() {
    long pages = 0, resident = 0;
    std::ifstream("/proc/self/statm") >> pages >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / 1e6;
}

/// Shrinks the photos in turns, so many times, and prints the resident memory after each of the counts.
int printResident(const std::vector<std::string>& photos, const std::vector<int>& counts) {
    const auto small = pex::URL::fromPath(photos.front() + ".small.jpg");
    int done = 0;
    for (const int count : counts) {
        for (; done < count; ++done) {
            const auto photo = pex::URL::fromPath(photos[std::size_t(done) % photos.size()]);
            const auto reduced = pex::PexImage::make({.fastUrl = photo})->resize({.withMaxSide = 1000});
            if (!reduced->saveToJpeg({.toUrl = small, .dpi = {}, .maxSize = 100'000}))
                throw std::runtime_error("not saved");
        }
        std::cout << fmt::format("{:.1f}\n", residentMegabytes());
    }
    return 0;
}

int printAgreements(const std::string& folder) {
    const Agreements all = compareSearches(folder);
    for (const Agreement& agreement : {all.photos, all.halfNoise})
        std::cout << fmt::format("{} {}\n", agreement.same, agreement.total);
    return 0;
}

int printVersions() {
    std::cout << fmt::format("libjpeg-turbo {}.{}.{}\nlibvips {}\nlibpng {}\n",
                             LIBJPEG_TURBO_VERSION_NUMBER / 1000000,
                             LIBJPEG_TURBO_VERSION_NUMBER / 1000 % 1000, LIBJPEG_TURBO_VERSION_NUMBER % 1000,
                             vips_version_string(), PNG_LIBPNG_VER_STRING);
    return 0;
}

int run(const std::vector<std::string>& words) {
    const std::string verb = words.empty() ? "" : words[0];
    if (verb == "serve" && words.size() == 2) return serve(words[1]);
    if (verb == "resize" && words.size() == 6) return resize(words);
    if (verb == "errors" && words.size() == 3) return printErrors(words[1], words[2]);
    if (verb == "resident" && words.size() == 4)
        return printResident({words[1], words[2]}, {10, std::stoi(words[3])});
    if (verb == "qualities" && words.size() == 2) return printAgreements(words[1]);
    if (verb == "versions" && words.size() == 1) return printVersions();
    if (verb == "decode" && words.size() == 4) {
        writePpm(decodeJpeg(readFile(words[1]), std::stoi(words[2]), 3), words[3]);
        return 0;
    }
    throw std::runtime_error("usage: see bench/worker/main.cpp");
}

} // namespace

int main(int argc, char** argv) {
    if (vips_init(argv[0])) return 1;
    pex::diagnostics::setSink({});
    try {
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "bench-worker: " << error.what() << '\n';
        return 1;
    }
}
