// What scripts/mutate.py puts in front of each source that it changes, and of the tests' main program. FAULTS is
// their number plus one; the environment variable VELMORA_FAULT chooses one of them.
#pragma once
#pragma GCC diagnostic error "-Wreturn-local-addr"
#pragma GCC diagnostic ignored "-Wsign-compare" // a bound plus the number of a fault is signed
#pragma GCC diagnostic ignored "-Wvla"          // a size that a fault may change is no constant

#include <atomic>
#include <cstdlib>
#include <type_traits>
#include <utility>

namespace mutated {

inline std::atomic<bool> reached[FAULTS];

inline bool fault(int number)
{
    static const int chosen = [] {
        const char *const text = std::getenv("VELMORA_FAULT");
        return text ? std::atoi(text) : 0;
    }();
    reached[number].store(true, std::memory_order_relaxed);
    return chosen == number;
}

template <class T> bool negated(int number, T &&value) { return static_cast<bool>(value) != fault(number); }

template <class T> bool never(int number, T &&value) { return !fault(number) && static_cast<bool>(value); }

template <class T> std::decay_t<T> changed(int number, T &&value)
{
    if constexpr (std::is_same_v<std::decay_t<T>, bool>) {
        return value != fault(number);
    } else {
        if (fault(number))
            return std::decay_t<T>{};
        return std::forward<T>(value);
    }
}

template <class T> T dropped(int number, T &value)
{
    if (fault(number))
        return T{};
    return std::move(value);
}

// The same type only: a conversion would choose another function even when the fault is not chosen.
template <class T> T &&other(int number, T &&value, T &&instead)
{
    return fault(number) ? std::forward<T>(instead) : std::forward<T>(value);
}

} // namespace mutated

#ifdef LISTEN
#include <fstream>
#include <gtest/gtest.h>

namespace mutated {

// Writes a line for each test: name, milliseconds, "ok" or "failed", the numbers that it reached. What is reached
// before the first one, where constants are set, stays reached.
class Listener : public testing::EmptyTestEventListener {
    bool always[FAULTS] = {};

    void OnTestProgramStart(const testing::UnitTest &) override
    {
        for (int number = 1; number < FAULTS; ++number)
            always[number] = reached[number];
    }
    void OnTestStart(const testing::TestInfo &) override
    {
        for (int number = 1; number < FAULTS; ++number)
            reached[number] = always[number];
    }
    void OnTestEnd(const testing::TestInfo &test) override
    {
        std::ofstream file(std::getenv("VELMORA_FAULTS_REACHED"), std::ios::app);
        file << test.test_suite_name() << '.' << test.name() << ' ' << test.result()->elapsed_time() << ' '
             << (test.result()->Failed() ? "failed" : "ok");
        for (int number = 1; number < FAULTS; ++number) {
            if (reached[number])
                file << ' ' << number;
        }
        file << '\n';
    }
};

inline void listen()
{
    if (std::getenv("VELMORA_FAULTS_REACHED"))
        testing::UnitTest::GetInstance()->listeners().Append(new Listener);
}

} // namespace mutated
#endif
