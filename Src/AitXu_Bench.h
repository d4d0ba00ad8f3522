// Not called by the plug-in: the rest of the camera's commands, for benches that link its objects.
// Handles, results and locking as in AitXu.h.
#pragma once

#include <stdint.h>

#include "AitDevice.h"

/// Pixel coordinates.
struct _FaceRect {
    uint16_t left;
    uint16_t top;
    uint16_t right;
    uint16_t bottom;
};
typedef _FaceRect FaceRect;

struct _FacePositionList {
    uint16_t num_face;  ///< as the camera says; at most the first 10 rectangles are filled
    FaceRect face_rect[20];
};
typedef _FacePositionList FacePositionList;

/// Face-detection command, sent as it stands.
struct _FACE_CMD {
    uint8_t cmd;
    uint8_t dlen;  ///< valid bytes in d
    uint8_t d[30];
};
typedef _FACE_CMD FACE_CMD;
static_assert(sizeof(FACE_CMD) == 32, "wire format");

/// Writes an ISP command block.
int AitIspCmdSet(AitDevHandle* ait_handle, unsigned char* cmd);
/// Writes an MMP command block. 0 for any handle: the transfer's result is deliberately not
/// examined.
int AitMMPCmdSet16(AitDevHandle* ait_handle, unsigned char* cmd);
/// Reads the MMP answer into `cmd`.
int AitMMPCmdGetResult16(AitDevHandle* ait_handle, unsigned char* cmd);

/// Reads the video option word. Its bytes are combined in the camera's own, odd way; see the code.
/// `options` is written on success only.
int AitXU_GetVideoOption(AitDevHandle* handle, unsigned int* options);
int AitXU_SetVideoOption(AitDevHandle* handle, unsigned int options);

int WriteSensorReg(AitDevHandle* ait_handle, unsigned short addr, unsigned short val);
/// The result of the read-back is ignored.
int ReadSensorReg(AitDevHandle* ait_handle, unsigned short addr, unsigned short* val);

/// Television preview parameters; positions and sizes in pixels.
int Set_TMK_TV_PreviewParam(AitDevHandle* ait_handle, uint8_t signal_type, uint8_t mode,
                            uint16_t crop_startX, uint16_t crop_startY, uint16_t crop_targetW,
                            uint16_t crop_targetH, uint16_t scale_targetW, uint16_t scale_targetH);

int SetH264Bitrate(AitDevHandle* ait_handle, unsigned short Kbps);

/// Reads the faces that the camera sees now. AIT_ERR_DEVICE when the transfer fails.
int GetFD_Position(AitDevHandle* ait_handle, FacePositionList* face_pos_list);
/// AIT_ERR_DEVICE when the transfer fails.
int SetFD_Param(AitDevHandle* ait_handle, FACE_CMD* fd_param);

/// Position of an axis (V4L2 control identifier: pan and tilt in 1/3600 degree, focus, zoom). `val`
/// is the answer and the result is advisory: a real bus reports the bytes moved, which counts as
/// -1.
int GetPTZ_Pos(AitDevHandle* ait_handle, unsigned int axis, int* val);
/// -1 unless the transfer's result is exactly 0; AIT_ERR_DEVICE for an unknown axis.
int SetPTZ_Pos(AitDevHandle* ait_handle, unsigned int axis, int val);
