#pragma once
// The interpreter's execution frames and their visitors. Frames are visited, never
// copied; a visitor's visit operation is its first after the destructor pair.
#include <memory>

namespace Hexfarrow::lxe {

class IExecutionFrame;

class IFrameVisitor {
public:
    IFrameVisitor() = default;
    IFrameVisitor(const IFrameVisitor&) = delete;
    IFrameVisitor& operator=(const IFrameVisitor&) = delete;
    virtual ~IFrameVisitor() = default;
    virtual void visit(const IExecutionFrame& frame) = 0;
};

class IExecutionFrame {
public:
    IExecutionFrame() = default;
    IExecutionFrame(const IExecutionFrame&) = delete;
    IExecutionFrame& operator=(const IExecutionFrame&) = delete;
    virtual ~IExecutionFrame() = default;
    virtual void accept(IFrameVisitor& visitor) const = 0;
};

// A frame that the interpreter pushes on construction and pops on destruction; the
// bundled host keeps no frame stack, so both are no-ops here.
class AutoPushingExecutionFrame : public IExecutionFrame {};

}  // namespace Hexfarrow::lxe
