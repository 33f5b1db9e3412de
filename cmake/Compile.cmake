set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_AUTOMOC ON)

# The same for programs and libraries, so that they can share precompiled headers.
add_compile_options(-fPIC)
# Nobody waits for a test's own code, but everybody for its compilation. What it tests stays optimised, and stays with
# both sanitizers.
set(RKM_TEST_OPTIONS $<$<CONFIG:RelWithDebInfo>:-O0>)
if(RKM_SANITIZE)
    set(RKM_TEST_OPTIONS -fno-sanitize=undefined -g1)
endif()
# Packages do not depend on the folder that they are built in. A debugger finds the sources from the top of the tree.
if(CMAKE_BUILD_TYPE STREQUAL "RelWithDebInfo")
    add_compile_options(-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=)
endif()
add_compile_options(-Wall -Wextra -Wpedantic -Werror)
add_compile_definitions(QT_NO_CAST_FROM_ASCII QT_NO_KEYWORDS)
add_link_options(-Wl,--as-needed -Wl,-z,relro -Wl,-z,now)

if(RKM_FUZZ)
    add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
elseif(RKM_SANITIZE)
    add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=undefined -fno-omit-frame-pointer)
    add_link_options(-fsanitize=address,undefined)
else()
    add_link_options(-Wl,--no-undefined)
endif()
