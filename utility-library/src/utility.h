#pragma once

namespace brem {

/// Base for helpers of the utility library that are owned through a pointer.
class Utility {
public:
    virtual ~Utility();
};

} // namespace brem
