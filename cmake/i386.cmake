# Toolchain: 32-bit x86 on an x86-64 machine, with the compiler of g++-12-multilib.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i686)
set(CMAKE_C_COMPILER gcc-12)
set(CMAKE_CXX_COMPILER g++-12)
# The C library's headers serve both widths, and lie where only the 64-bit compiler looks by itself.
foreach(language C CXX)
  set(CMAKE_${language}_FLAGS_INIT "-m32 -msse2 -mfpmath=sse -idirafter /usr/include/x86_64-linux-gnu")
endforeach()
