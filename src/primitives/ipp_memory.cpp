#include "ipp_memory.h"

#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

namespace {

constexpr std::size_t kAlignment = 64;
// 64 bytes to reach the alignment and 8 for the word before the block that
// remembers where the allocation starts.
constexpr std::size_t kOverhead = kAlignment + sizeof(void*);
// Blocks from this size on (the large FFTs, their tables and buffers) ask the
// system for huge pages: the strided sweeps of the large transforms then miss
// the address translation cache far less often. Only advice: a refusal costs nothing.
constexpr std::size_t kHugePageAdviceBytes = std::size_t{4} << 20;
constexpr std::uintptr_t kPage = 4096;

void AdviseHugePages(void* raw, std::size_t bytes) {
    const auto start = (reinterpret_cast<std::uintptr_t>(raw) + kPage - 1) & ~(kPage - 1);
    const auto end = (reinterpret_cast<std::uintptr_t>(raw) + bytes) & ~(kPage - 1);
    if (end > start) madvise(reinterpret_cast<void*>(start), end - start, MADV_HUGEPAGE);
}

void* AlignedBlock(std::size_t bytes) {
    void* raw = std::malloc(bytes + kOverhead);
    if (raw == nullptr) return nullptr;
    if (bytes >= kHugePageAdviceBytes) AdviseHugePages(raw, bytes + kOverhead);
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
