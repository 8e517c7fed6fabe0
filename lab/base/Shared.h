// SPDX-License-Identifier: Apache-2.0
// Values in memory that a process shares with those that it forks, and that outlives them.

#pragma once

#include <stddef.h>
#include <sys/mman.h>

#include <memory>
#include <type_traits>

#include "lab/base/Files.h"

namespace lab {

// One value, or an array of them, as `Value()` makes them.
template <typename Value>
class Shared {
    // A process may end at any moment and leaves nothing to clean up.
    static_assert(std::is_trivially_destructible_v<Value>);

public:
    // Throws std::runtime_error without memory.
    explicit Shared(size_t count = 1) : mCount(count) {
        void* memory = mmap(nullptr, count * sizeof(Value), PROT_READ | PROT_WRITE,
                            MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) failWithErrno("cannot map", "shared memory");
        mValues = static_cast<Value*>(memory);
        std::uninitialized_value_construct_n(mValues, count);
    }
    ~Shared() {
        munmap(mValues, mCount * sizeof(Value));
    }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;

    Value& operator[](size_t index) {
        return mValues[index];
    }
    Value* operator->() const {
        return mValues;
    }
    size_t size() const {
        return mCount;
    }
    Value* begin() {
        return mValues;
    }
    Value* end() {
        return mValues + mCount;
    }

private:
    const size_t mCount;
    Value* mValues;
};

}  // namespace lab
