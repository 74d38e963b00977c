#include "boost/process/context.h"

#include "boost/process/detail/errors.h"

#include <boost/scoped_array.hpp>

#include <unistd.h>

#include <cassert>
#include <cstring>

namespace boost::process {

std::string current_work_directory() {
    const long longest = ::pathconf(".", _PC_PATH_MAX);
    if (longest == -1) {
        detail::throw_errno("boost::process::basic_work_directory_context::"
                            "basic_work_directory_context: pathconf(2) failed");
    }
    const boost::scoped_array<char> buffer(new char[static_cast<std::size_t>(longest)]);
    if (::getcwd(buffer.get(), static_cast<std::size_t>(longest)) == nullptr) {
        detail::throw_errno("boost::process::basic_work_directory_context::"
                            "basic_work_directory_context: getcwd(2) failed");
    }
    std::string work_directory(buffer.get());
    assert(!work_directory.empty());
    return work_directory;
}

environment current_environment() {
    environment variables;
    for (char** entry = ::environ; entry != nullptr && *entry != nullptr; ++entry) {
        const char* const equals = std::strchr(*entry, '=');
        if (equals != nullptr) {
            variables.emplace(std::string(static_cast<const char*>(*entry), equals), equals + 1);
        }
    }
    return variables;
}

posix_context::posix_context(const std::string& directory)
    : work_directory(directory),
      uid(::getuid()),
      euid(::geteuid()),
      gid(::getgid()),
      egid(::getegid()) {}

} // namespace boost::process
