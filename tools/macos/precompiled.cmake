# Included at project(): every source is compiled with the headers compiled before.
add_compile_options(
  "$<$<COMPILE_LANGUAGE:CXX>:SHELL:-include-pch ${CMAKE_BINARY_DIR}/c++.pch>"
  "$<$<COMPILE_LANGUAGE:OBJCXX>:SHELL:-include-pch ${CMAKE_BINARY_DIR}/objective-c++.pch>")
