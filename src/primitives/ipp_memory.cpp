#include "ipp_memory.h"

#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kAlignment = 64;
// 64 bytes to reach the alignment and 8 for the word before the block that
// remembers where the allocation starts.
constexpr std::size_t kOverhead = kAlignment + sizeof(void*);

void* AlignedBlock(std::size_t bytes) {
    void* raw = std::malloc(bytes + kOverhead);
    if (raw == nullptr) return nullptr;
    auto base = reinterpret_cast<std::uintptr_t>(raw) + sizeof(void*);
    auto aligned = (base + kAlignment - 1) & ~(std::uintptr_t{kAlignment} - 1);
    std::memcpy(reinterpret_cast<void*>(aligned - sizeof(void*)), &raw, sizeof(void*));
    return reinterpret_cast<void*>(aligned);
}

template <typename T>
T* Allocate(int length) {
    if (length < 1) return nullptr;
    return static_cast<T*>(AlignedBlock(static_cast<std::size_t>(length) * sizeof(T)));
}

}  // namespace

Ipp8u* ippsMalloc_8u(int length) { return Allocate<Ipp8u>(length); }
Ipp64f* ippsMalloc_64f(int length) { return Allocate<Ipp64f>(length); }
Ipp64fc* ippsMalloc_64fc(int length) { return Allocate<Ipp64fc>(length); }

void ippsFree(void* block) {
    if (block == nullptr) return;
    void* raw;
    std::memcpy(&raw, static_cast<char*>(block) - sizeof(void*), sizeof(void*));
    std::free(raw);
}
