#pragma once

/// Unpacks a key package, a tar archive of items, into secure storage: 0 installed, 2 try again,
/// anything else failed. Lives in a library of its own, which is loaded for the one installation in
/// a device's life: the archive reader and what comes with it weigh more than a whole sending pass.
extern "C" int sdp_unpack_package(const char* path);
