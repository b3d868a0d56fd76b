# Compiler flags as two targets:
#   zorvad_warnings   what every one of our own targets compiles with
#   zorvad_subset     the C++ subset of the program and the stand-ins: no exceptions, no RTTI,
#                     nothing that needs the C++ runtime library

add_library(zorvad_warnings INTERFACE)
target_compile_options(zorvad_warnings INTERFACE
  -Wall -Wextra -Wshadow -Wconversion -Wmissing-declarations -Wno-missing-field-initializers)
if(ZORVAD_WERROR)
  target_compile_options(zorvad_warnings INTERFACE -Werror)
endif()

add_library(zorvad_subset INTERFACE)
target_link_libraries(zorvad_subset INTERFACE zorvad_warnings)
target_compile_options(zorvad_subset INTERFACE
  $<$<COMPILE_LANGUAGE:CXX>:-fno-exceptions -fno-rtti -fno-threadsafe-statics>)

if(ZORVAD_FUZZ)
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined
    -fno-sanitize-recover=undefined -O1 -g)
  add_link_options(-fsanitize=address,undefined)
elseif(ZORVAD_SANITIZE)
  # Plain char is signed here and unsigned on AArch64: this build takes the other side.
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined
    -fno-omit-frame-pointer -funsigned-char -O1)
  add_compile_definitions(_GLIBCXX_ASSERTIONS)
  add_link_options(-fsanitize=address,undefined)
else()
  add_compile_options(-fstack-protector-strong)
  add_compile_options($<$<CONFIG:Release>:-D_FORTIFY_SOURCE=2>)
  add_link_options(-Wl,-z,relro -Wl,-z,now -Wl,--as-needed)
endif()
include(CheckPIESupported)
check_pie_supported()
