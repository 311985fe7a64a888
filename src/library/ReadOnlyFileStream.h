#pragma once

#include <taglib/tiostream.h>

#include <memory>
#include <vector>

// A read-only TagLib stream over an open file that reads with pread in 16 KB blocks and keeps the last few.
// TagLib reads a tag as many small seeks and reads (header, frames, the last 128 bytes, the first audio
// frame); through stdio each costs one or two system calls, here most come from a block already read.
// Reads larger than a block go straight to the file. Single-threaded, like any TagLib stream.
class ReadOnlyFileStream final : public TagLib::IOStream {
public:
    // Takes ownership of `fd`; `size` is the file's length in bytes.
    ReadOnlyFileStream(int fd, long long size);
    ~ReadOnlyFileStream() override;
    ReadOnlyFileStream(const ReadOnlyFileStream&) = delete;
    ReadOnlyFileStream& operator=(const ReadOnlyFileStream&) = delete;

    TagLib::FileName name() const override { return ""; }
    TagLib::ByteVector readBlock(unsigned long length) override;
    void writeBlock(const TagLib::ByteVector&) override {}
    void insert(const TagLib::ByteVector&, unsigned long, unsigned long) override {}
    void removeBlock(unsigned long, unsigned long) override {}
    bool readOnly() const override { return true; }
    bool isOpen() const override { return m_fd >= 0; }
    void seek(long offset, Position from = Beginning) override;
    long tell() const override { return long(m_position); }
    long length() override { return long(m_size); }
    void truncate(long) override {}

private:
    // Tags and the frame headers after them are small: a larger block copies bytes nobody reads.
    static constexpr long long blockSize = 16 * 1024;
    static constexpr size_t maximumBlocks = 8;

    struct Block {
        long long offset = 0;
        long long size = 0; // shorter than blockSize at the end of the file
        const char* bytes = nullptr;
        std::unique_ptr<char[]> owned; // the bytes, unless they are m_ownBlock
    };

    // The block starting at `offset` (a multiple of blockSize), read if needed; null when the read fails.
    const Block* block(long long offset);
    // Reads `length` bytes at `offset` into `into`; returns how many it got.
    long long readAt(long long offset, char* into, long long length) const;

    int m_fd;
    long long m_size;
    long long m_position = 0;
    std::vector<Block> m_blocks; // the most recently read last
    // Most files are read from one or two blocks: the first needs no allocation, which in a thread that
    // has just freed a tag's many small pieces would first have the allocator sort them all back.
    char m_ownBlock[blockSize];
};
