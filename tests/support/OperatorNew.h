// Operator new and new[], plain and with std::nothrow, by the names that the linker knows. The type
// of size_t is part of them: unsigned long on a 64-bit machine, unsigned int on a 32-bit one. In a
// CMakeLists.txt AITCAM_SIZE_T is the same letter.
#pragma once

#if __SIZEOF_SIZE_T__ == 8
#define AITCAM_SIZE_T "m"
#else
#define AITCAM_SIZE_T "j"
#endif

#define AITCAM_NEW "_Znw" AITCAM_SIZE_T
#define AITCAM_NEW_ARRAY "_Zna" AITCAM_SIZE_T
#define AITCAM_NEW_NOTHROW AITCAM_NEW "RKSt9nothrow_t"
#define AITCAM_NEW_ARRAY_NOTHROW AITCAM_NEW_ARRAY "RKSt9nothrow_t"
