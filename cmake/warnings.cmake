# Warnings and sanitizers, as usage requirements of one interface target that everything of ours links.
add_library(vrm_options INTERFACE)
target_compile_options(vrm_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wcast-qual -Wformat=2
  -Wnon-virtual-dtor -Wold-style-cast -Wundef
  $<$<BOOL:${VRM_WERROR}>:-Werror>)
# Files of 2 GiB and more, and dates past 2038, on the 32-bit targets too.
target_compile_definitions(vrm_options INTERFACE _FILE_OFFSET_BITS=64 _TIME_BITS=64 _GNU_SOURCE)
if(VRM_SANITIZE)
  target_compile_options(vrm_options INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vrm_options INTERFACE -fsanitize=address,undefined)
endif()
if(VRM_FUZZ)
  # Lets libFuzzer see which branches an input took.
  target_compile_options(vrm_options INTERFACE -fsanitize=fuzzer-no-link)
endif()
