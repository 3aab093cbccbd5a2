// Pieces of work are done again and again while the n-th piece of memory, open file or write cannot be had,
// and while there may be only n threads, for one n after the other. Each time there must be the right
// result, or none and a reason; nothing half-written stays, memory comes back, and the process neither ends
// nor hangs.
//
//     calls-that-fail [JOB [WAY [N]]]     N: that one alone, instead of a sample

#include "peximage/image/PexImage.h"
#include "peximage/platform/codecs/CGImageDestination.h"
#include "peximage/platform/codecs/CGImageSource.h"
#include "peximage/platform/foundation/Diagnostics.h"
#include "peximage/platform/foundation/Reason.h"
#include "tests/support/InChild.h"
#include "tests/support/JpegFiles.h"
#include "tests/support/PictureFiles.h"
#include "tests/support/Pictures.h"
#include "tests/support/TempFolder.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <iostream>
#include <malloc.h>
#include <optional>
#include <pthread.h>
#include <sys/mman.h>

using namespace pex;

namespace {

enum class Call { none, memory, bytes, thread, open, write };

constexpr long unit = 64 << 10; // of bytes

std::atomic<Call> armed{Call::none};
std::atomic<long> calls{0}, failures{0}, failsAt{0};
std::atomic<long> inUse{0}, bytesInUse{0}, threads{0};
std::atomic<bool> failsAfter{false};

bool isToFail(Call call, std::size_t bytes = 0) {
    const Call now = armed.load(std::memory_order_relaxed);
    if (now != call && !(now == Call::bytes && call == Call::memory)) return false;
    const long n = ++calls;
    const bool fails = now == Call::bytes    ? bytesInUse + long(bytes) > failsAt * unit
                       : now == Call::thread ? threads >= failsAt
                                             : n == failsAt || (failsAfter && n > failsAt);
    failures += fails;
    return fails;
}

void* counted(void* memory, long by = 1) {
    inUse += memory != nullptr ? by : 0;
    bytesInUse += by * long(::malloc_usable_size(memory));
    return memory;
}

int without(int error) {
    errno = error;
    return -1;
}

/// The C library's own function of a name that this program defines, also for the libraries that it loads.
template <class Function>
Function* original(const char* name) {
    return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

struct Started {
    void* (*run)(void*);
    void* argument;
};

void* runCounted(void* memory) {
    struct Ended {
        ~Ended() { --threads; }
    } ended;
    const Started started = *static_cast<Started*>(memory);
    std::free(memory);
    return started.run(started.argument);
}

} // namespace

extern "C" {
void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

void* malloc(std::size_t bytes) {
    if (isToFail(Call::memory, bytes)) return without(ENOMEM), nullptr;
    return counted(__libc_malloc(bytes));
}

void* calloc(std::size_t count, std::size_t bytes) {
    if (isToFail(Call::memory, count * bytes)) return without(ENOMEM), nullptr;
    return counted(__libc_calloc(count, bytes));
}

void* realloc(void* memory, std::size_t bytes) {
    if (memory == nullptr) return malloc(bytes);
    if (isToFail(Call::memory, bytes)) return without(ENOMEM), nullptr;
    counted(memory, -1);
    return counted(__libc_realloc(memory, bytes));
}

void* memalign(std::size_t alignment, std::size_t bytes) {
    if (isToFail(Call::memory, bytes)) return without(ENOMEM), nullptr;
    return counted(__libc_memalign(alignment, bytes));
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes) { return memalign(alignment, bytes); }

int posix_memalign(void** memory, std::size_t alignment, std::size_t bytes) {
    void* const got = memalign(alignment, bytes);
    if (got != nullptr) *memory = got;
    return got != nullptr ? 0 : ENOMEM;
}

void free(void* memory) {
    counted(memory, -1);
    __libc_free(memory);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* how, void* (*run)(void*), void* argument) {
    static auto* const its = original<decltype(pthread_create)>("pthread_create");
    if (isToFail(Call::thread)) return EAGAIN;
    void* const started = counted(__libc_malloc(sizeof(Started)));
    ++threads;
    return its(thread, how, runCounted, new (started) Started{run, argument});
}

int open(const char* path, int flags, ...) {
    static auto* const its = original<int(const char*, int, ...)>("open");
    va_list more;
    va_start(more, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? static_cast<mode_t>(va_arg(more, int)) : 0;
    va_end(more);
    return isToFail(Call::open) ? without(EMFILE) : its(path, flags, mode);
}

ssize_t write(int descriptor, const void* bytes, std::size_t count) {
    static auto* const its = original<decltype(write)>("write");
    return descriptor > STDERR_FILENO && isToFail(Call::write) ? without(ENOSPC)
                                                               : its(descriptor, bytes, count);
}
} // extern "C"

namespace {

/// A number that stands for the bytes of a result, and 0 for none.
using Digest = std::uint64_t;

Digest digestOf(const std::uint8_t* bytes, std::size_t count, Digest before = 14695981039346656037U) {
    for (std::size_t i = 0; i < count; ++i)
        before = (before ^ bytes[i]) * 1099511628211U;
    return before | 1;
}

Digest digestOf(const std::optional<CGImage>& image) {
    const auto pixels = image ? image->pixels() : std::nullopt;
    if (!pixels || image->isIncomplete()) return 0;
    const std::size_t rowBytes = std::size_t(pixels->width) * std::size_t(bytesPerPixel(pixels->layout));
    Digest digest = 1;
    for (int y = 0; y < pixels->height; ++y)
        digest = digestOf(pixels->row(y), rowBytes, digest);
    return digest;
}

Digest digestOf(const std::optional<Data>& file) { return file ? digestOf(file->data(), file->size()) : 0; }

Digest decoded(const URL& file) {
    const auto source = CGImageSource::make(file);
    return source ? digestOf(source->createImage()) : 0;
}

const TempFolder* made = nullptr; // by the first process, and removed by it
const TempFolder& folder() { return *made; }

const PexImage::FastUrl& original() {
    static const PexImage::FastUrl url{folder().url("a.jpg")};
    return url;
}

Digest shrunk(const URL& file) {
    const auto photo = PexImage::make(original());
    const auto small = photo ? photo->resize({.withMaxSide = 150}) : nullptr;
    return small && small->saveToJpeg({.toUrl = file, .maxSize = 6000}) ? digestOf(Data::contentsOf(file))
                                                                        : 0;
}

const CGImage& photo() {
    static const CGImage& picture = *new CGImage(photoLike(200, 160));
    return picture;
}

template <ImageFormat format>
Digest encoded(const URL& to) {
    const auto file = CGImageDestination::encode(photo(), format, {});
    return file && file->write(to, Data::Writing::atomically) ? digestOf(file) : 0;
}

struct Job {
    const char* name;
    Digest (*work)(const URL&);
    const char* file;
    bool writes, byModule;
};

constexpr Job jobs[] = {
    {"shrink", shrunk, "small.jpg", true, false},
    {"write-jpeg", encoded<ImageFormat::jpeg>, "b.jpg", true, false},
    {"write-png", encoded<ImageFormat::png>, "b.png", true, false},
    {"write-tiff", encoded<ImageFormat::tiff>, "b.tif", true, true},
    {"write-webp", encoded<ImageFormat::webp>, "b.webp", true, true},
    {"write-heif", encoded<ImageFormat::heif>, "b.heic", true, true},
    {"write-avif", encoded<ImageFormat::avif>, "b.avif", true, true},
    {"read-jpeg", decoded, "a.jpg", false, false},
    {"read-progressive", decoded, "progressive.jpg", false, false},
    {"read-png", decoded, "a.png", false, false},
    {"read-bmp", decoded, "a.bmp", false, false},
    {"read-tiff", decoded, "a.tif", false, true},
    {"read-webp", decoded, "a.webp", false, true},
    {"read-heif", decoded, "a.heic", false, true},
    {"read-avif", decoded, "a.avif", false, true},
    {"read-gif", decoded, "a.gif", false, true},
    {"read-pdf", decoded, "a.pdf", false, true},
};

struct Way {
    const char* name;
    Call call;
    bool andAllAfter; // or the n-th alone
    bool isFirst;     // the work is the first that its process does: modules are loaded, threads started
    std::optional<bool> byModule = {};
};

/// Small pieces that other libraries miss in their midst are not survived by all of these: with modules it is
/// the sum that is bounded, as by the system.
constexpr Way ways[] = {{"memory", Call::memory, false, false, false},
                        {"no-more-memory", Call::memory, true, false, false},
                        {"first-memory", Call::memory, false, true, false},
                        {"bytes", Call::bytes, true, false, true},
                        {"first-bytes", Call::bytes, true, true, true},
                        {"threads", Call::thread, true, true},
                        {"open", Call::open, false, true},
                        {"write", Call::write, false, false}};

/// The files that are read, by a process of its own.
int makeFiles() {
    encoded<ImageFormat::jpeg>(folder().url("a.jpg"));
    encoded<ImageFormat::png>(folder().url("a.png"));
    encoded<ImageFormat::tiff>(folder().url("a.tif"));
    encoded<ImageFormat::webp>(folder().url("a.webp"));
    encoded<ImageFormat::heif>(folder().url("a.heic"));
    encoded<ImageFormat::avif>(folder().url("a.avif"));
    const auto put = [](const char* name, const std::vector<std::uint8_t>& bytes) {
        Data(bytes).write(folder().url(name), Data::Writing::inPlace);
    };
    const auto sample = [](int x, int y, int c) { return pixelAt(photo(), x, y)[std::size_t(c)]; };
    put("progressive.jpg",
        makeJpeg(200, 160, {.settings = [](auto& how) { jpeg_simple_progression(&how); }}, sample));
    put("a.gif", gifFile(96, 64, true, 2));
    put("a.bmp", bmpFile(40, 40, 24, 0, {}, std::vector<std::uint8_t>(40 * 120, 99)));
    const Data pdf(pdfFile({{80, 60, "1 0 0 rg 10 10 30 30 re f"}}));
    return pdf.write(folder().url("a.pdf"), Data::Writing::inPlace) ? 0 : 1;
}

/// What is shared with the processes that do the work.
struct Progress {
    std::atomic<long> n, absent;
    std::atomic<bool> goesOn;
    std::atomic<Digest> expected;
    std::atomic<const char*> fault;
};

Progress& progress() {
    static auto* const shared = static_cast<Progress*>(
        ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    return *shared;
}

/// 0 also when it throws, which is a fault.
Digest tryOnce(const Job& job, const Way& way, const URL& file) {
    constexpr unsigned hangsAfter = 20; // seconds
    ::alarm(hangsAfter);
    giveReason(ReasonCode::none, {});
    calls = failures = 0;
    failsAt = progress().n.load();
    if (way.call == Call::thread) failsAt += threads - 1; // from none on
    if (way.call == Call::bytes) failsAt += bytesInUse / unit;
    failsAfter = way.andAllAfter;
    Digest got = 0;
    armed = way.call;
    try {
        got = job.work(file);
    } catch (...) {
        progress().fault = "an exception comes out";
    }
    armed = Call::none;
    progress().goesOn = failures > 0;
    ::alarm(0);
    return got;
}

/// Whether memory stays in use every time; other threads let go of what they had a little later.
bool leaks(const Job& job, const Way& way, const URL& file) {
    for (int i = 0; i < 4; ++i) {
        const long before = inUse;
        tryOnce(job, way, file);
        for (int looks = 0; looks < 2000 && inUse > before; ++looks)
            ::sched_yield();
        if (inUse <= before) return false;
    }
    return true;
}

const char* faultOfOne(const Job& job, const Way& way, const URL& file) {
    const Data old("old");
    if (job.writes) old.write(file, Data::Writing::inPlace);
    const long files = folder().count();
    const Digest got = tryOnce(job, way, file);
    if (progress().fault != nullptr) return progress().fault;
    progress().absent += got == 0;
    if (got != 0 && got != progress().expected) return "the result is another one";
    if (got == 0 && !lastReason()) return "no reason is given";
    if (folder().count() > files) return "another file stays";
    const auto now = job.writes && got == 0 ? Data::contentsOf(file) : std::nullopt;
    if (now && *now != old && digestOf(now) != progress().expected) return "something half-written stays";
    return !way.isFirst && leaks(job, way, file) ? "memory stays in use" : nullptr;
}

/// Every early n, where most things happen, and a sample of the later ones.
void next(bool isFirst) { progress().n += 1 + progress().n / (isFirst ? 4 : 8); }

/// In a child process; goes on with the next n when it may.
int sweepOn(const Job& job, const Way& way, bool alone) {
    diagnostics::setSink({});
    const URL file = folder().url(job.file);
    if (!way.isFirst) job.work(file);
    for (;; next(false)) {
        progress().fault = faultOfOne(job, way, file);
        if (progress().fault != nullptr) return 1;
        if (way.isFirst || alone || !progress().goesOn) return 0;
    }
}

/// Whether all went well.
bool sweep(const Job& job, const Way& way, long only) {
    Progress& p = progress();
    p.absent = 0;
    for (p.n = std::max(only, 1L);; next(true)) {
        p.fault = nullptr;
        int status = 0;
        ::waitpid(startChild([&] { return sweepOn(job, way, only > 0); }), &status, 0);
        if (status != 0) {
            const char* fault = p.fault;
            if (fault == nullptr) fault = WIFSIGNALED(status) ? strsignal(WTERMSIG(status)) : "it ends";
            std::cout << job.name << ' ' << way.name << ' ' << p.n << ": " << fault << std::endl;
            return false;
        }
        if (only > 0 || !p.goesOn) break;
    }
    std::cout << job.name << ' ' << way.name << ": to " << p.n << ", " << p.absent
              << " times without a result\n";
    return true;
}

} // namespace

int main(int count, char** arguments) {
    const auto isMeant = [&](int i, const char* name) {
        return count <= i || arguments[i] == std::string_view(name);
    };
    const TempFolder temporary;
    made = &temporary;
    photo();
    original();
    if (inChild(makeFiles) != 0) return 1;
    bool good = true;
    for (const Job& job : jobs) {
        if (!isMeant(1, job.name)) continue;
        progress().expected = 0;
        inChild([&] { return (progress().expected = job.work(folder().url(job.file))) == 0; });
        good &= progress().expected != 0;
        for (const Way& way : ways) {
            if (isMeant(2, way.name) && way.byModule.value_or(job.byModule) == job.byModule)
                good &= sweep(job, way, count > 3 ? std::atol(arguments[3]) : 0);
        }
    }
    return good ? 0 : 1;
}
