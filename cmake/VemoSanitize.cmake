# Sanitizers apply to every target (ours and the test framework's sources) so
# that instrumented and uninstrumented frames never mix inside our code.
if(VEMO_SANITIZE STREQUAL "address")
    set(_vemo_san -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(VEMO_SANITIZE STREQUAL "thread")
    set(_vemo_san -fsanitize=thread -fno-omit-frame-pointer)
elseif(VEMO_SANITIZE STREQUAL "undefined")
    set(_vemo_san -fsanitize=undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
elseif(NOT VEMO_SANITIZE STREQUAL "")
    message(FATAL_ERROR "VEMO_SANITIZE must be address, thread, undefined or empty, not '${VEMO_SANITIZE}'")
endif()
# RapidJSON 1.1's schema code hashes "enum" values in a pool placed on a plain
# char array on the stack, which 32-bit ARM aligns to 4 bytes only, so its
# 64-bit hash words are misaligned (ARMv7 allows 4-byte aligned 64-bit
# accesses). Alignment reports stay recoverable there, so that one dependency
# file can be suppressed (cmake/ubsan-armhf.supp) while any other undefined
# behaviour still stops the test.
# These builds also use ARM rather than Thumb-2 code: a Thumb function's
# address has its low bit set, and gcc's UBSan reports every reference bound
# to such a function (std::thread(f), std::make_shared<T>(f)) as misaligned.
# Type sizes and alignment are the same in both instruction sets.
if(_vemo_san AND CMAKE_SYSTEM_PROCESSOR MATCHES "^arm" AND VEMO_SANITIZE MATCHES "address|undefined")
    list(APPEND _vemo_san -fsanitize-recover=alignment -marm)
endif()
if(_vemo_san)
    add_compile_options(${_vemo_san})
    add_link_options(${_vemo_san} ${VEMO_SANITIZE_LINK_EXTRA})
endif()
