// OnThread.h - runs a part of a test on a thread with a given stack size.
#pragma once

#include <cstddef>
#include <functional>

#include <pthread.h>

#include <gtest/gtest.h>

/// Runs `work` to its end on a thread with a stack of `bytes`.
inline void onThread(std::size_t bytes, const std::function<void()>& work) {
    pthread_attr_t attributes;
    ASSERT_EQ(0, pthread_attr_init(&attributes));
    ASSERT_EQ(0, pthread_attr_setstacksize(&attributes, bytes));
    const auto run = [](void* argument) -> void* {
        (*static_cast<const std::function<void()>*>(argument))();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(0, pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&work)));
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}
