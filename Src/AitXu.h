// The road to the camera of those who have opened it themselves, the firmware loader above all:
// vendor commands as requests to the device. The camera object goes through the video engine
// instead; what benches need besides is in AitXu_Bench.h.
//
// Free functions on an open camera; they keep no state and take no lock beyond that of each
// transfer, so a set-then-get pair is not atomic: callers that may race hold a lock of their own.
// Results: 0, a negative libusb error as it came, -1 for a null handle, or AIT_ERR_DEVICE where it
// is said.
#pragma once

#include <stdint.h>

#include "AitDevice.h"
#include "VendorCommands.h"

/// One SET_CUR or GET_CUR of an entity's control, `timeout` in milliseconds. The result is libusb's
/// own: bytes, or a negative error. The recipient is the device, not the interface: the firmware
/// of these cameras expects it on this road.
int AitXU_Request(AitDevHandle* ait_handle, bool set, uint8_t entity, uint8_t selector,
                  unsigned char* data, uint16_t length, int timeout);

/// Reads the ISP answer into `cmd`; `timeout` in milliseconds.
int AitIspCmdGetResult(AitDevHandle* ait_handle, unsigned char* cmd, int timeout);

constexpr int kFromCamera = 0;
constexpr int kToCamera = 1;
/// General extension-unit transfer of `len` bytes; only the low byte of selector `cs` travels;
/// `direction` non-zero writes, zero reads. A null handle gives AIT_ERR_DEVICE.
int AitXU_XuCmd(AitDevHandle* ait_handle, unsigned char* cmd, uint16_t cs, uint8_t len,
                int direction);

/// The same for a command; for the answer to the last command of the block's group, which is read
/// into the block; and for both, where a failed command ends it.
int AitXU_SendBlock(AitDevHandle* ait_handle, xu::Block block);
int AitXU_ReadAnswer(AitDevHandle* ait_handle, xu::Block& block);
int AitXU_Query(AitDevHandle* ait_handle, xu::Block& block);

/// Reads the six version bytes. A camera that answers with an error status leaves `fwVer` untouched
/// and the result is still 0: callers clear `fwVer` first.
int AitXU_GetFWVersion(AitDevHandle* handle, unsigned char* fwVer);
