#pragma once
// An execution frame of a built-in call, visitable by the host's frame visitors. The
// built-ins create none; the type exists so that such frames can be visited.
#include "Hexfarrow/lxe/IExecutionFrame.hpp"

#include <memory>

namespace quorin::io::filesystem::quorin {

// What a frame owns; destroyed through its virtual destructor.
class FrameContext {
public:
    FrameContext() = default;
    FrameContext(const FrameContext&) = delete;
    FrameContext& operator=(const FrameContext&) = delete;
    virtual ~FrameContext();
};

class FunctionExecutionFrame : public Hexfarrow::lxe::AutoPushingExecutionFrame {
public:
    explicit FunctionExecutionFrame(std::unique_ptr<FrameContext> context);
    ~FunctionExecutionFrame() override;
    void accept(Hexfarrow::lxe::IFrameVisitor& visitor) const override;
    [[nodiscard]] const FrameContext* context() const noexcept { return context_.get(); }

private:
    std::unique_ptr<FrameContext> context_;
};

}  // namespace quorin::io::filesystem::quorin
