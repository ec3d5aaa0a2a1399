# The board's own code must not call a name that the board takes over: it would be handed to itself. Only the objects
# with the entry points themselves are exempt.
#
#   cmake -DNM=nm -DMAP=entry_points.map -DOBJECTS=a.a,b.o,... -P symbols.cmake
cmake_policy(SET CMP0057 NEW) # IN_LIST
file(READ ${MAP} map)
string(REGEX REPLACE "/\\*[^*]*\\*/" "" map "${map}")
string(REGEX REPLACE ".*global:|local:.*" "" map "${map}")
string(REGEX MATCHALL "[A-Za-z_0-9]+" taken "${map}")
list(LENGTH taken count)
if(count LESS 100)
    message(FATAL_ERROR "only ${count} entry points found in ${MAP}")
endif()

string(REPLACE "," ";" objects "${OBJECTS}")
set(calls 0)
foreach(object ${objects})
    execute_process(COMMAND ${NM} -A --undefined-only ${object} OUTPUT_VARIABLE listing RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "cannot list the symbols of ${object}")
    endif()
    string(REGEX MATCHALL "[^\n]+" lines "${listing}")
    foreach(line ${lines})
        string(REGEX REPLACE ".* U ([^@]*).*" "\\1" name "${line}")
        math(EXPR calls "${calls} + 1")
        if(name IN_LIST taken)
            message(SEND_ERROR "${line}: the board takes this name over, use the real call (board/Real.h)")
        endif()
    endforeach()
endforeach()
if(calls EQUAL 0)
    message(FATAL_ERROR "no undefined symbols at all: nothing was looked at")
endif()
