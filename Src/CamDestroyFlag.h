// Whether cam_destroy has begun: work on the camera object is abandoned then and the host is not
// called back any more. One in the process. Any thread.
#pragma once

bool IsCamDestroy();
/// For the camera object: cam_destroy sets it, a new object clears it.
void SetCamDestroy(bool destroying);
