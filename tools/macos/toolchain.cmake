# Debian's clang-19 and lld-19 as a compiler for macOS, over the folder that make_sdk.py puts together. Set with it:
# CMAKE_OSX_SYSROOT and one CMAKE_OSX_ARCHITECTURES.
set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR "${CMAKE_OSX_ARCHITECTURES}")
set(CMAKE_OSX_DEPLOYMENT_TARGET 12.0)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES CMAKE_OSX_SYSROOT CMAKE_OSX_ARCHITECTURES)

set(llvm /usr/lib/llvm-19/bin)
foreach(language C CXX OBJC OBJCXX)
  if(language MATCHES "CXX")
    set(CMAKE_${language}_COMPILER "${llvm}/clang++")
    # The compiler would prefer the library beside it.
    set(cxx "-nostdinc++ -isystem ${CMAKE_OSX_SYSROOT}/usr/include/c++/v1")
  else()
    set(CMAKE_${language}_COMPILER "${llvm}/clang")
    set(cxx "")
  endif()
  set(CMAKE_${language}_COMPILER_TARGET "${CMAKE_OSX_ARCHITECTURES}-apple-macos12.0")
  # GNUstep's headers show Apple's interface, without their own additions.
  set(CMAKE_${language}_FLAGS_INIT "${cxx} -DGNUSTEP -DGNUSTEP_BASE_LIBRARY=1 -DNO_GNUSTEP=1")
  if(language MATCHES "OBJC")
    string(APPEND CMAKE_${language}_FLAGS_INIT " -Wundeclared-selector")
  endif()
endforeach()

# Everything is linked, also what no program calls: a symbol that does not exist shows only where it is not stripped.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -Wl,-all_load,-export_dynamic")
set(CMAKE_AR "${llvm}/llvm-ar" CACHE FILEPATH "")
set(CMAKE_RANLIB "${llvm}/llvm-ranlib" CACHE FILEPATH "")
set(CMAKE_INSTALL_NAME_TOOL "${llvm}/llvm-install-name-tool" CACHE FILEPATH "")

set(CMAKE_FIND_ROOT_PATH "${CMAKE_OSX_SYSROOT}")
foreach(kind LIBRARY INCLUDE PACKAGE)
  set(CMAKE_FIND_ROOT_PATH_MODE_${kind} ONLY)
endforeach()
