#pragma once

#include <cstddef>
#include <functional>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

// ThreadSanitizer allows no threads in forked processes; AddressSanitizer's memory may stay locked there when
// other threads of the parent were asking for some.
#if defined(__SANITIZE_THREAD__)
constexpr bool underThreadSanitizer = true, underAddressSanitizer = false;
#elif defined(__SANITIZE_ADDRESS__)
constexpr bool underThreadSanitizer = false, underAddressSanitizer = true;
#elif defined(__has_feature)
constexpr bool underThreadSanitizer = __has_feature(thread_sanitizer);
constexpr bool underAddressSanitizer = __has_feature(address_sanitizer);
#else
constexpr bool underThreadSanitizer = false, underAddressSanitizer = false;
#endif

/// Starts a child process that runs `work` and exits with what it returns, without any clean-up.
inline pid_t startChild(const std::function<int()>& work) {
    const pid_t child = ::fork();
    if (child == 0) ::_exit(work());
    return child;
}

/// The exit status of the child; -1 when it did not exit by itself.
inline int waitForChild(pid_t child) {
    int status = 0;
    if (::waitpid(child, &status, 0) != child || !WIFEXITED(status)) return -1;
    return WEXITSTATUS(status);
}

inline int inChild(const std::function<int()>& work) { return waitForChild(startChild(work)); }

/// From now on the process can have no new thread. For child processes.
inline void allowNoMoreThreads() {
    constexpr std::size_t moreThanThereIs = std::size_t{1} << 46;
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, moreThanThereIs);
    ::pthread_setattr_default_np(&attributes);
    ::pthread_attr_destroy(&attributes);
}
