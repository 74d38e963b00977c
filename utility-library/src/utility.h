#pragma once

namespace brem {

/// Base for helpers of the utility library that are owned through a pointer.
class Utility {
public:
    Utility() = default;
    virtual ~Utility();

    Utility(const Utility&) = delete;
    Utility& operator=(const Utility&) = delete;
};

} // namespace brem
