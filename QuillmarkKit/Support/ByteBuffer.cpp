#include "QuillmarkKit/Support/ByteBuffer.h"

#include <algorithm>
#include <cassert>
#include <cstring>
#include <new>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace quillmark {

namespace {

constexpr std::size_t hugePage = std::size_t{2} << 20;
constexpr std::size_t worthHugePages = 2 * hugePage;

char* allocated(std::size_t capacity) {
    if (capacity < worthHugePages) return static_cast<char*>(std::malloc(std::max<std::size_t>(capacity, 1)));
    const std::size_t rounded = (capacity + hugePage - 1) / hugePage * hugePage;
    void* bytes = std::aligned_alloc(hugePage, rounded);
#if defined(__linux__)
    if (bytes) madvise(bytes, rounded, MADV_HUGEPAGE);
#endif
    return static_cast<char*>(bytes);
}

}  // namespace

ByteBuffer::ByteBuffer(std::size_t capacity) : m_bytes(allocated(capacity)), m_capacity(capacity) {
    if (!m_bytes) throw std::bad_alloc();
}

ByteBuffer::ByteBuffer(std::string_view bytes) : ByteBuffer(bytes.size()) {
    if (!bytes.empty()) std::memcpy(m_bytes.get(), bytes.data(), bytes.size());
    m_size = bytes.size();
}

void ByteBuffer::setSize(std::size_t size) {
    assert(size <= m_capacity);
    m_size = size;
}

void ByteBuffer::grow(std::size_t capacity) {
    if (capacity <= m_capacity) return;
    ByteBuffer larger(capacity);
    if (m_size > 0) std::memcpy(larger.data(), m_bytes.get(), m_size);
    larger.m_size = m_size;
    *this = std::move(larger);
}

}  // namespace quillmark
