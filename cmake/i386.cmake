# The reference's data model (ILP32) at native speed, with the native compiler.
# The package that would link asm/ for -m32 clashes with cross compilers, so the headers of the
# native architecture are searched last instead.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR i386)
set(CMAKE_CXX_COMPILER g++-12)
set(CMAKE_CXX_FLAGS_INIT "-m32 -idirafter /usr/include/x86_64-linux-gnu")
