# Builds for 32-bit x86 Linux with the multilib compiler of a 64-bit machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

# SSE2 for float and double; long double stays the x87's 80 bits, which the statistics are computed in.
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")

# Libraries of the i386 packages, not their 64-bit namesakes.
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_SYSTEM_PREFIX_PATH /usr)
