#include "quorin/gateway/FunctionExecutionFrame.hpp"

namespace quorin::io::filesystem::quorin {

FrameContext::~FrameContext() = default;

FunctionExecutionFrame::FunctionExecutionFrame(std::unique_ptr<FrameContext> context)
    : context_(std::move(context)) {}

FunctionExecutionFrame::~FunctionExecutionFrame() = default;

void FunctionExecutionFrame::accept(Hexfarrow::lxe::IFrameVisitor& visitor) const {
    visitor.visit(*this);
}

}  // namespace quorin::io::filesystem::quorin
