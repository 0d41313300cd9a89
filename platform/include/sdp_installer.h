#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/**
 * Installs the items of a key package into secure storage.
 * @param path  the package; items of the same names are replaced
 * @param mode  as the platform defines it; the agent passes 2
 * @param flag  likewise; the agent passes 0
 * @return 0 installed, 2 try again, anything else failed
 */
int sdp_install_from_file(const char* path, int mode, int flag);

#ifdef __cplusplus
}
#endif
