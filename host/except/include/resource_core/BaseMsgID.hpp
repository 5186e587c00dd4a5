#pragma once
// A message identifier: component path, mnemonic and the ordered message arguments.
//
// Identifier classes derive from BaseMsgID and only fix component, mnemonic and the
// argument count; they add no state, so copying through the base loses nothing.
#include "resource_core/MessageArg.hpp"

#include <concepts>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace resource_core {

class BaseMsgID {
public:
    BaseMsgID() = default;
    BaseMsgID(std::string component, std::string mnemonic)
        : component_(std::move(component)), mnemonic_(std::move(mnemonic)) {}
    // Presizes the argument list: every slot holds integer 0 until it is assigned.
    BaseMsgID(std::size_t argCount, std::string component, std::string mnemonic)
        : args_(argCount, MessageArg{std::int64_t{0}}),
          component_(std::move(component)),
          mnemonic_(std::move(mnemonic)) {}

    [[nodiscard]] const std::vector<MessageArg>& getArgs() const noexcept { return args_; }
    [[nodiscard]] const std::string& getComponent() const noexcept { return component_; }
    [[nodiscard]] const std::string& getMnemonic() const noexcept { return mnemonic_; }

    // Stores an argument in its slot; the alternative follows the argument's type.
    void setArg(std::size_t index, const fl::ustring& text) { args_.at(index) = text; }
    void setArg(std::size_t index, const std::string& text) { args_.at(index) = text; }
    void setArg(std::size_t index, const char* text) { args_.at(index) = std::string(text); }
    template <std::integral I>
    void setArg(std::size_t index, I value) {
        args_.at(index) = static_cast<std::int64_t>(value);
    }
    void appendArg(MessageArg arg) { args_.push_back(std::move(arg)); }

private:
    std::vector<MessageArg> args_;
    std::string component_;
    std::string mnemonic_;
};

// Base of identifier classes with a fixed argument count: presizes the list, then assigns
// each argument into its slot by type.
template <std::size_t N>
class FixedMsgID : public BaseMsgID {
public:
    static constexpr std::size_t argumentCount = N;

    template <class... A>
    requires(sizeof...(A) == N)
        FixedMsgID(std::string component, std::string mnemonic, const A&... args)
        : BaseMsgID(N, std::move(component), std::move(mnemonic)) {
        std::size_t i = 0;
        (setArg(i++, args), ...);
    }
};

}  // namespace resource_core
