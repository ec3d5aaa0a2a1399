# VELCAM_SANITIZE: empty, "address" (with undefined and leak), "thread", or "fuzzer" (Clang's, with address and
# undefined). Applies to everything that is built.
set(VELCAM_SANITIZE "" CACHE STRING "Sanitizers: empty, address, thread or fuzzer")
set_property(CACHE VELCAM_SANITIZE PROPERTY STRINGS "" address thread fuzzer)

set(VELCAM_SANITIZER_RUNTIME "")
if(VELCAM_SANITIZE STREQUAL "address")
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
    add_compile_definitions(_GLIBCXX_ASSERTIONS)
    set(velcam_runtime libasan.so)
elseif(VELCAM_SANITIZE STREQUAL "thread")
    add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
    add_link_options(-fsanitize=thread)
    set(velcam_runtime libtsan.so)
elseif(VELCAM_SANITIZE STREQUAL "fuzzer")
    # Only the fuzzers' programs are linked to the fuzzer itself, which brings a main().
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
    add_compile_definitions(_GLIBCXX_ASSERTIONS)
elseif(VELCAM_SANITIZE)
    message(FATAL_ERROR "VELCAM_SANITIZE is '${VELCAM_SANITIZE}'; it takes nothing, address, thread or fuzzer")
endif()

# Instrumented library code (std::function in std::regex, above all) looks uninitialised to GCC 12 when it is not.
if(VELCAM_SANITIZE AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
endif()

# For what nobody waits for: half of such a build's time went into optimising command lines and tests.
macro(velcam_unoptimised_when_sanitized)
    if(VELCAM_SANITIZE MATCHES "^(address|thread)$")
        add_compile_options(-O0)
    endif()
endmacro()

# The virtual board is preloaded, and a sanitizer's runtime has to be loaded before it: the launcher must know the file.
if(velcam_runtime)
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=${velcam_runtime}
                    OUTPUT_VARIABLE velcam_runtime_path OUTPUT_STRIP_TRAILING_WHITESPACE)
    file(REAL_PATH "${velcam_runtime_path}" VELCAM_SANITIZER_RUNTIME)
endif()
