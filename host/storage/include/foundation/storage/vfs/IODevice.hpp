#pragma once
// An open file for reading or writing. The constructor opens the file (so constructing
// one is the test that a file can be read) and throws vfs::Exception when it cannot:
// code 4 no file, 2 not allowed, 1 a folder or no location, 5 other. The device closes
// on destruction; close() reports a failure that destruction would swallow.
#include "foundation/storage/provider/Provider.hpp"
#include "foundation/storage/vfs/File.hpp"

#include <cstddef>
#include <memory>
#include <span>

namespace foundation::storage::vfs {

class FOUNDATION_STORAGE_API IODevice {
public:
    using OpenMode = provider::OpenMode;

    explicit IODevice(const File& file, OpenMode mode = OpenMode::Read);
    IODevice(IODevice&&) noexcept;
    IODevice& operator=(IODevice&&) noexcept;
    ~IODevice();

    // Bytes read, 0 at the end of the file.
    std::size_t read(std::span<std::byte> buffer);
    // Writes all of data or throws.
    void write(std::span<const std::byte> data);
    void close();

private:
    AbsoluteIRI location_;
    std::unique_ptr<provider::Stream> stream_;
};

}  // namespace foundation::storage::vfs
