// The cheap way of looking for the camera: the kernel's text listing of USB devices. Loader threads:
// what was last seen of the listing is shared by all of the process, and guarded.
#pragma once

/// Set by IsAITCamera for the product IDs 0x205D and 0x2062, cleared for the other accepted ones.
extern bool m_bAITCAM;

/// Whether the identity is one of the camera family: the camera vendor ID with product ID 0x205C to
/// 0x206F.
bool IsAITCamera(int vid, int pid);

/// Whether the listing's status-change time or size differs from what the last call saw, which
/// lives as long as the process: an unchanged listing is not looked at again.
bool IsProcDeviceChanged();

/// Copies the `size` characters that follow `pattern` in `source` to `dest`, without terminator
/// (the caller clears `dest` first; fewer when `source` ends before). False when there is no such
/// pattern or `size` is below 1.
bool GetCamString(char* dest, char* source, const char* pattern, int size);

/// Number of changed listings that the process has read so far.
unsigned int ListingsSeen();

/// Product ID of the first camera in the listing; 0 when there is none or nothing has changed. For
/// one of several loaders: a listing that another one has read since `*seen` counts as changed.
/// `*seen` follows.
int t_SearchAITUsbCamera(unsigned int* seen);

// --- not called by the plug-in -------------------------------------------------------------------

/// The same search for one that is alone in the process.
int t_SearchAITUsbCamera();
