#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace fuzz {

/// Small decisions and pieces of text from the front of an input; zeros and nothing when it is used up.
class Input {
public:
    explicit Input(std::string_view bytes) : rest_(bytes) {}

    bool empty() const { return rest_.empty(); }
    size_t size() const { return rest_.size(); }

    uint8_t byte()
    {
        const std::string_view one = take(1);
        return one.empty() ? uint8_t{0} : static_cast<uint8_t>(one.front());
    }

    std::string_view take(size_t length)
    {
        const std::string_view taken = rest_.substr(0, length);
        rest_.remove_prefix(taken.size());
        return taken;
    }

    /// Up to a separator, which is taken away.
    std::string_view field(char separator)
    {
        const std::string_view taken = take(std::min(rest_.find(separator), rest_.size()));
        take(1);
        return taken;
    }

    std::string_view rest() { return take(rest_.size()); }

private:
    std::string_view rest_;
};

}  // namespace fuzz
