#pragma once

#include <string>

namespace preview {

/// The program and its device on a desk.
struct Installation {
    std::string bootlume;
    std::string virtualDevice;
    std::string recorder; ///< library that records drawing calls
};

/// Takes what is given; looks for the rest in the environment (BOOTLUME_PROGRAM,
/// BOOTLUME_VIRTUAL_DEVICE), next to this program as in a build folder, and where both are
/// installed. The recorder lies beside the virtual device. Throws std::runtime_error that names
/// what is missing and where it was looked for.
Installation locate(const std::string& bootlume, const std::string& virtualDevice);

/// What a person types to reach the splash below this folder with the client, up to its subcommand.
std::string clientCommand(const std::string& root);

} // namespace preview
