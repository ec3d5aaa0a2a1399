# The warnings every target of the project is built with. Linked PRIVATE, so that nothing leaks to a user of a library.
add_library(velcam_warnings INTERFACE)
target_compile_options(velcam_warnings INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wold-style-cast -Wcast-align
    -Wnon-virtual-dtor -Woverloaded-virtual -Wmissing-declarations -Wformat=2 -Wnull-dereference -Wundef -Wvla)

# A user's compiler may know warnings that ours does not: errors are for our own builds and CI.
option(VELCAM_WERROR "Treat warnings as errors" OFF)
if(VELCAM_WERROR)
    target_compile_options(velcam_warnings INTERFACE -Werror)
endif()
