/// The gateway's discovery service. On a gateway its own library stands behind this header.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

/// Starts the discovery thread of the platform, if it has one. Called once, from the main thread.
void createThread_discovery(void);

#ifdef __cplusplus
}
#endif
