# What makes a flaw harder to use, in all our programs and the host kit. It costs the waiting daemon one page of private memory
# at most: 304 to 312 kB before, 308 to 312 kB after, in four runs of script/bench each.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)

# Without the check CMake compiles for PIE and does not link it.
check_pie_supported(LANGUAGES CXX)

add_compile_options(-fstack-protector-strong)
foreach(option stack-clash-protection cf-protection)
  string(MAKE_C_IDENTIFIER "has_${option}" has)
  # The second is of one processor family alone.
  check_cxx_compiler_flag("-f${option}" ${has})
  if(${has})
    add_compile_options("-f${option}")
  endif()
endforeach()

# Of optimised code alone: nothing is known of sizes otherwise. A sanitizer checks the same calls, and better.
if(NOT CMAKE_CXX_FLAGS MATCHES "fsanitize")
  add_compile_options("$<$<NOT:$<CONFIG:Debug>>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
endif()

# All addresses are bound at the start, and then nobody can write them; what an assembler forgot to say makes no stack
# executable.
add_link_options(LINKER:-z,relro,-z,now,-z,noexecstack)
