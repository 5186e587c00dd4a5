#include "foundation/storage/vfs/IODevice.hpp"

#include "foundation/storage/vfs/Exception.hpp"

#include <utility>

namespace foundation::storage::vfs {

IODevice::IODevice(const File& file, OpenMode mode)
    : location_(file.getLocation()),
      stream_(file.getStorage().providerFor(location_).open(location_, mode)) {}

IODevice::IODevice(IODevice&&) noexcept = default;
IODevice& IODevice::operator=(IODevice&&) noexcept = default;
IODevice::~IODevice() = default;

std::size_t IODevice::read(std::span<std::byte> buffer) {
    if (!stream_) throw Exception(Exception::InvalidLocation, location_, "device is closed");
    return stream_->read(buffer);
}

void IODevice::write(std::span<const std::byte> data) {
    if (!stream_) throw Exception(Exception::InvalidLocation, location_, "device is closed");
    stream_->write(data);
}

void IODevice::close() {
    if (!stream_) return;
    auto stream = std::move(stream_);
    stream->close();
}

}  // namespace foundation::storage::vfs
