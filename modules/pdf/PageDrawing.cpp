#include "modules/pdf/PageDrawing.h"

#include "modules/pdf/DrawingRequest.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <csignal>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

using Drawing = pex::PdfModule::Drawing;
using Drawn = pex::PdfModule::Drawn;

Descriptor::~Descriptor() {
    if (number_ >= 0) ::close(number_);
}

namespace {

/// The program beside this module; empty when that cannot be told.
std::string programPath() {
    static const char here = 0;
    Dl_info info{};
    if (dladdr(&here, &info) == 0 || info.dli_fname == nullptr || info.dli_fname[0] != '/') return {};
    const std::string module = info.dli_fname;
    return module.substr(0, module.rfind('/') + 1) + "pdf-draw";
}

/// The same file under a number beyond those that the program gets, and closed in any other.
Descriptor movedAway(Descriptor file) {
    constexpr int beyond = 16;
    return file ? Descriptor(fcntl(file.number(), F_DUPFD_CLOEXEC, beyond)) : Descriptor();
}

Descriptor memoryFile() { return movedAway(Descriptor(memfd_create("pdf", MFD_CLOEXEC))); }

bool writeAll(int file, const std::uint8_t* bytes, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(file, bytes, size);
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return false;
        bytes += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

/// Starts the program with no more than the files it works on; -1 when that cannot be.
pid_t spawned(const std::string& path, int socket, int document, int pixels) {
    posix_spawn_file_actions_t files;
    posix_spawnattr_t attributes;
    if (posix_spawn_file_actions_init(&files) != 0) return -1;
    posix_spawnattr_init(&attributes);
    for (const int standard : {0, 1, 2})
        posix_spawn_file_actions_addopen(&files, standard, "/dev/null", O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&files, socket, DrawingRequest::socket);
    posix_spawn_file_actions_adddup2(&files, document, DrawingRequest::document);
    posix_spawn_file_actions_adddup2(&files, pixels, DrawingRequest::pixels);
    sigset_t none, all;
    sigemptyset(&none);
    sigfillset(&all);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &all);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    std::string name = path;
    char* const arguments[] = {name.data(), nullptr};
    pid_t program = -1;
    if (posix_spawn(&program, path.c_str(), &files, &attributes, arguments, environ) != 0) program = -1;
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&files);
    return program;
}

/// Numbers A R G B in the machine's byte order as bytes R G B A.
void toBytes(const std::uint32_t* argb, std::uint8_t* to, int pixels) {
    for (int i = 0; i < pixels; ++i, to += 4) {
        to[0] = static_cast<std::uint8_t>(argb[i] >> 16);
        to[1] = static_cast<std::uint8_t>(argb[i] >> 8);
        to[2] = static_cast<std::uint8_t>(argb[i]);
        to[3] = static_cast<std::uint8_t>(argb[i] >> 24);
    }
}

bool copyPixels(int file, const Drawing& drawing) {
    const std::size_t row = static_cast<std::size_t>(drawing.width) * 4,
                      bytes = row * static_cast<std::size_t>(drawing.height);
    void* memory = mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file, 0);
    if (memory == MAP_FAILED) return false;
    for (int y = 0; y < drawing.height; ++y)
        toBytes(static_cast<const std::uint32_t*>(memory) + std::ptrdiff_t{y} * drawing.width,
                drawing.pixels + y * drawing.bytesPerRow, drawing.width);
    munmap(memory, bytes);
    return true;
}

} // namespace

bool PageDrawing::start() {
    if (program_ > 0) return true;
    const std::string path = programPath();
    const Descriptor document = memoryFile();
    pixels_ = memoryFile();
    int ends[2] = {-1, -1};
    if (path.empty() || !document || !pixels_ || !writeAll(document.number(), bytes_, size_) ||
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return false;
    socket_ = movedAway(Descriptor(ends[0]));
    const Descriptor other = movedAway(Descriptor(ends[1]));
    if (!socket_ || !other) return false;
    program_ = spawned(path, other.number(), document.number(), pixels_.number());
    starter_ = getpid();
    return program_ > 0;
}

void PageDrawing::end() {
    if (program_ > 0 && starter_ == getpid()) {
        kill(program_, SIGKILL);
        while (waitpid(program_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    program_ = -1;
    socket_ = Descriptor();
    pixels_ = Descriptor();
}

Drawn PageDrawing::draw(const Drawing& drawing) {
    if (starter_ != getpid()) end();
    const Drawn drawn = start() ? ask(drawing) : Drawn::failed;
    if (drawn != Drawn::done) end();
    return drawn;
}

Drawn PageDrawing::ask(const Drawing& drawing) {
    const off_t bytes = off_t{drawing.width} * drawing.height * 4;
    if (ftruncate(pixels_.number(), 0) != 0 || ftruncate(pixels_.number(), bytes) != 0) return Drawn::failed;
    constexpr double longest = 1e6;
    const double seconds = drawing.seconds > 0 ? std::min(drawing.seconds, longest) : 0;
    const DrawingRequest request{drawing.page, drawing.width, drawing.height,
                                 static_cast<std::uint32_t>(std::ceil(seconds)) + 1};
    if (send(socket_.number(), &request, sizeof request, MSG_NOSIGNAL) != sizeof request)
        return Drawn::failed;
    const Drawn drawn = waitForAnswer(seconds);
    const bool copied = drawn == Drawn::done && copyPixels(pixels_.number(), drawing);
    const bool emptied = ftruncate(pixels_.number(), 0) == 0;
    return drawn != Drawn::done || (copied && emptied) ? drawn : Drawn::failed;
}

Drawn PageDrawing::waitForAnswer(double seconds) {
    using Clock = std::chrono::steady_clock;
    const auto end = Clock::now() + std::chrono::milliseconds(static_cast<long long>(seconds * 1000));
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd answer{socket_.number(), POLLIN, 0};
        const int ready = poll(&answer, 1, static_cast<int>(std::max<long long>(left, 0)));
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) return Drawn::late;
        std::uint8_t drawn = 0;
        const ssize_t read = ready > 0 ? recv(socket_.number(), &drawn, 1, 0) : -1;
        if (read < 0 && errno == EINTR) continue;
        return read == 1 && drawn == 1 ? Drawn::done : Drawn::failed;
    }
}
