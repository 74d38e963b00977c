#include "utility.h"

namespace brem {

Utility::~Utility() = default;

} // namespace brem
