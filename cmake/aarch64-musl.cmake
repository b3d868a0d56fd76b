# AArch64 Linux with the musl C library, static PIE, by clang and lld. scripts/build-target makes
# the folder that ZORVAD_TARGET_ROOT names: musl/ (its headers and objects) and prefix/ (libraries).
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(ZORVAD_TARGET_ROOT "" CACHE PATH "The folder with the target's C library and libraries")
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES ZORVAD_TARGET_ROOT)

set(CMAKE_C_COMPILER clang-14)
set(CMAKE_CXX_COMPILER clang++-14)
set(CMAKE_C_COMPILER_TARGET aarch64-linux-musl)
set(CMAKE_CXX_COMPILER_TARGET aarch64-linux-musl)

set(musl_headers ${ZORVAD_TARGET_ROOT}/musl/usr/include/aarch64-linux-musl)
set(musl_objects ${ZORVAD_TARGET_ROOT}/musl/usr/lib/aarch64-linux-musl)
file(GLOB libgcc /usr/lib/gcc-cross/aarch64-linux-gnu/*/libgcc.a)
list(GET libgcc -1 libgcc)

# The outlined atomics of libgcc ask glibc for the processor's features.
string(JOIN " " flags -nostdlibinc -isystem ${musl_headers} -mno-outline-atomics
  -ffunction-sections -fdata-sections -Wno-unused-command-line-argument)
set(CMAKE_C_FLAGS_INIT "${flags}")
# The headers of libc++ go in front of those of the C library, which they include.
set(CMAKE_CXX_FLAGS_INIT
  "-nostdinc++ -isystem /usr/lib/llvm-14/include/c++/v1 -D_LIBCPP_HAS_MUSL_LIBC ${flags}")

# A plain static program would have no table of exported symbols.
string(JOIN " " CMAKE_EXE_LINKER_FLAGS_INIT -fuse-ld=lld -nostdlib -static-pie -Wl,--gc-sections
  -L${musl_objects} ${musl_objects}/rcrt1.o ${musl_objects}/crti.o)
set(CMAKE_C_STANDARD_LIBRARIES "-lc ${libgcc} -lc ${musl_objects}/crtn.o")
set(CMAKE_CXX_STANDARD_LIBRARIES "${CMAKE_C_STANDARD_LIBRARIES}")

set(CMAKE_FIND_ROOT_PATH ${ZORVAD_TARGET_ROOT}/prefix)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)
