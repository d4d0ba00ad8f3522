// Whether cam_destroy has begun: work on the camera object is abandoned then and the host is not
// called back any more. Owned by the camera object's source file.
#pragma once

bool IsCamDestroy();
