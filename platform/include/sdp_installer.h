#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Installs the items of a key package into secure storage.
 * @param path  the package
 * @return 0 installed, 2 try again, anything else failed
 */
int sdp_install_from_file(const char* path, int mode, int flag);

#ifdef __cplusplus
}
#endif
