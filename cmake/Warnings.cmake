# Warnings are errors in our own code; headers of others are system headers and none of our business.
add_library(crd_warnings INTERFACE)
target_compile_options(crd_warnings INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor -Wold-style-cast -Woverloaded-virtual
  -Wformat=2 -Werror "$<$<COMPILE_LANGUAGE:OBJCXX>:-Wundeclared-selector>")
# So that the linker can leave out what is never called.
target_compile_options(crd_warnings INTERFACE -ffunction-sections -fdata-sections)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  # False alarms of g++ 12 on "text" + std::string in optimised builds.
  target_compile_options(crd_warnings INTERFACE -Wno-restrict)
  if(CMAKE_CXX_FLAGS MATCHES "fsanitize")
    # More of them, inside std::regex.
    target_compile_options(crd_warnings INTERFACE -Wno-maybe-uninitialized)
  endif()
endif()
