#pragma once

#include <cstddef>
#include <pthread.h>

/// From now on the process can have no new thread. For child processes.
inline void allowNoMoreThreads() {
    constexpr std::size_t moreThanThereIs = std::size_t{1} << 46;
    pthread_attr_t attributes;
    ::pthread_attr_init(&attributes);
    ::pthread_attr_setstacksize(&attributes, moreThanThereIs);
    ::pthread_setattr_default_np(&attributes);
    ::pthread_attr_destroy(&attributes);
}
