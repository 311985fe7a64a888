#include "library/ReadOnlyFileStream.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

ReadOnlyFileStream::ReadOnlyFileStream(int fd, long long size)
    : m_fd(fd)
    , m_size(std::max(0LL, size)) {}

ReadOnlyFileStream::~ReadOnlyFileStream() {
    if (m_fd >= 0)
        ::close(m_fd);
}

long long ReadOnlyFileStream::readAt(long long offset, char* into, long long length) const {
    long long done = 0;
    while (done < length) {
        const ssize_t got = ::pread(m_fd, into + done, size_t(length - done), off_t(offset + done));
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            break;
        done += got;
    }
    return done;
}

const ReadOnlyFileStream::Block* ReadOnlyFileStream::block(long long offset) {
    for (const Block& held : m_blocks) {
        if (held.offset == offset)
            return &held;
    }
    if (m_blocks.size() == maximumBlocks)
        m_blocks.erase(m_blocks.begin());
    Block fresh;
    fresh.offset = offset;
    char* into = m_ownBlock;
    if (std::any_of(m_blocks.cbegin(), m_blocks.cend(), [](const Block& held) { return !held.owned; })) {
        fresh.owned.reset(new char[size_t(blockSize)]);
        into = fresh.owned.get();
    }
    fresh.bytes = into;
    fresh.size = readAt(offset, into, std::min(blockSize, m_size - offset));
    if (fresh.size <= 0)
        return nullptr;
    m_blocks.push_back(std::move(fresh));
    return &m_blocks.back();
}

TagLib::ByteVector ReadOnlyFileStream::readBlock(unsigned long length) {
    const long long wanted = std::min<long long>(length, m_size - m_position);
    if (wanted <= 0)
        return {};
    TagLib::ByteVector out(static_cast<unsigned int>(wanted), '\0');
    long long done = 0;
    if (wanted > blockSize) {
        done = readAt(m_position, out.data(), wanted);
    } else {
        while (done < wanted) {
            const long long at = m_position + done;
            const Block* held = block(at - at % blockSize);
            if (!held)
                break;
            const long long from = at - held->offset;
            const long long count = std::min(wanted - done, held->size - from);
            if (count <= 0)
                break;
            std::memcpy(out.data() + done, held->bytes + from, size_t(count));
            done += count;
        }
    }
    if (done < wanted)
        out.resize(static_cast<unsigned int>(done));
    m_position += done;
    return out;
}

void ReadOnlyFileStream::seek(long offset, Position from) {
    long long base = 0;
    if (from == Current)
        base = m_position;
    else if (from == End)
        base = m_size;
    m_position = std::max(0LL, base + offset);
}
