# Debian's mingw-w64 for 64-bit Windows, in the variant that has std::thread.
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)
set(CMAKE_CXX_COMPILER x86_64-w64-mingw32-g++-posix)
set(CMAKE_RC_COMPILER x86_64-w64-mingw32-windres)
set(CMAKE_DLLTOOL x86_64-w64-mingw32-dlltool)
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
