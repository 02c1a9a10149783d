// Owning array of the engines on the 64-byte aligned allocator of the vector
// primitives. Elements are plain numbers (float, double, complex double): the
// memory is not initialised.
#ifndef QOR_SMART_ARRAY_H
#define QOR_SMART_ARRAY_H

#include <cstddef>
#include <type_traits>

#include "ipps.h"
#include "tw_exception.h"

namespace qor {

template <typename T>
class smart_array {
    static_assert(std::is_trivially_copyable_v<T>, "smart_array holds plain numbers");

public:
    smart_array() = default;
    explicit smart_array(int length) { Allocate(length); }
    ~smart_array() { ippsFree(data_); }
    smart_array(const smart_array&) = delete;
    smart_array& operator=(const smart_array&) = delete;
    smart_array(smart_array&& other) noexcept : data_(other.data_), length_(other.length_) {
        other.data_ = nullptr;
        other.length_ = 0;
    }
    smart_array& operator=(smart_array&& other) noexcept {
        if (this != &other) {
            ippsFree(data_);
            data_ = other.data_;
            length_ = other.length_;
            other.data_ = nullptr;
            other.length_ = 0;
        }
        return *this;
    }

    // Replaces the contents by `length` new elements; length 0 leaves it empty.
    void Allocate(int length) {
        if (length < 0) throw tw_exception("Invalid smart_array length in malloc()");
        ippsFree(data_);
        data_ = nullptr;
        length_ = 0;
        if (length == 0) return;
        const std::size_t bytes = static_cast<std::size_t>(length) * sizeof(T);
        if (bytes > static_cast<std::size_t>(INT32_MAX)) throw tw_exception("Smart Pointer Malloc Error");
        data_ = reinterpret_cast<T*>(ippsMalloc_8u(static_cast<int>(bytes)));
        if (data_ == nullptr) throw tw_exception("Smart Pointer Malloc Error");
        length_ = length;
    }

    T* get() { return data_; }
    const T* get() const { return data_; }
    T& operator[](std::size_t i) { return data_[i]; }
    const T& operator[](std::size_t i) const { return data_[i]; }
    int size() const { return length_; }
    bool empty() const { return length_ == 0; }

private:
    T* data_ = nullptr;
    int length_ = 0;
};

}  // namespace qor

#endif
