# Builds for 32-bit x86 Linux with the multilib compiler of a 64-bit machine.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)

# SSE2 for float and double. long double keeps the x87's 80 bits; the statistics are computed in it.
set(CMAKE_CXX_FLAGS_INIT "-m32 -msse2 -mfpmath=sse")

# Find the libraries of the i386 packages, not the 64-bit ones of the same name.
set(CMAKE_LIBRARY_ARCHITECTURE i386-linux-gnu)
set(CMAKE_SYSTEM_PREFIX_PATH /usr)
