# How every target of the tree is compiled, in one place.
#
#   ombry_library(NAME ...)      static library of all sources of the current folder, less those behind EXCLUDE; of its
#                                folders Linux/ and Windows/, what the system is that is built for
#   ombry_slow_to_optimise(NAME) which is not worth optimising under a sanitizer
#   ombry_rapidjson              RapidJSON with the one set of macros that the whole tree shares

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(THREADS_PREFER_PTHREAD_FLAG ON)

find_package(Threads REQUIRED)
if(CMAKE_SYSTEM_NAME STREQUAL "Linux")
    find_package(OpenSSL 3 REQUIRED)
endif()

find_program(OMBRY_CCACHE ccache)
if(OMBRY_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${OMBRY_CCACHE}")
endif()

# Debug information for line numbers only: the test builds stay small enough for a two-core machine. Where the test command
# builds once and no sanitizer reports a line, nobody reads it, and it takes a sixth of the compiler's time.
set(CMAKE_CXX_FLAGS_DEBUG "-O0 -g1")
if(OMBRY_UNITY AND NOT OMBRY_SANITIZE)
    set(CMAKE_CXX_FLAGS_DEBUG "-O0")
endif()
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # There GCC is quicker with what it optimises at no cost: a quarter of the inline functions is left to be assembled and
    # linked. A later one may see more to warn of then, which would fail these builds.
    if(OMBRY_UNITY AND NOT OMBRY_SANITIZE AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
        set(CMAKE_CXX_FLAGS_DEBUG "-Og")
    endif()
    # One eighth of the compiler's time went into looking for memory to give back.
    string(APPEND CMAKE_CXX_FLAGS_DEBUG " --param=ggc-min-expand=200 --param=ggc-min-heapsize=1048576")
endif()

# Sources that share a compilation read the headers, and make what templates make, once for all. Names in unnamed
# namespaces meet there, so that no two sources of a target give one name to different things. Who builds from nothing and
# once, as the test command does, shares among all of a target; who builds after each change among few.
set(CMAKE_UNITY_BUILD ${OMBRY_UNITY})
if(OMBRY_UNITY AND OMBRY_TESTS)
    set(CMAKE_UNITY_BUILD_BATCH_SIZE 0)
elseif(OMBRY_UNITY)
    set(CMAKE_UNITY_BUILD_BATCH_SIZE 24)
else()
    set(CMAKE_UNITY_BUILD_BATCH_SIZE 8)
endif()

add_library(ombry_options INTERFACE)
target_include_directories(ombry_options INTERFACE
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}> $<INSTALL_INTERFACE:include/ombry>)
target_compile_features(ombry_options INTERFACE cxx_std_20)
# The rest is how this tree is built, and no business of those who link the installed libraries. Warnings fail the builds
# with tests, and nobody's release: the next compiler will have a new one.
set(OMBRY_COMPILE_OPTIONS
    -Wall -Wextra -Wpedantic $<$<BOOL:${OMBRY_WERROR}>:-Werror> -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-align -Wformat=2
    # GCC 12 sees overlapping copies in the standard library's own string code once it optimises.
    $<$<AND:$<CXX_COMPILER_ID:GNU>,$<NOT:$<CONFIG:Debug>>>:-Wno-restrict>
    -fstack-protector-strong
    # All libraries of others are bound when a program starts, so that a detour by the table for later is for nothing.
    $<$<AND:$<BOOL:${UNIX}>,$<NOT:$<CONFIG:Debug>>>:-fno-plt>
    # What ships is the same wherever it was built: log lines name their source by its place in the tree. And it does not
    # say by which compiler.
    $<$<CONFIG:Release>:-ffile-prefix-map=${PROJECT_SOURCE_DIR}/=>
    $<$<CONFIG:Release>:-fno-ident>
    $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
target_compile_options(ombry_options INTERFACE "$<BUILD_INTERFACE:${OMBRY_COMPILE_OPTIONS}>")
target_link_libraries(ombry_options INTERFACE Threads::Threads)
if(WIN32)
    # A file of tests has more sections than a plain object file holds. What the stack protector calls is a library here,
    # which those need as well who link the installed libraries.
    target_compile_options(ombry_options INTERFACE $<BUILD_INTERFACE:-Wa,-mbig-obj>)
    target_link_libraries(ombry_options INTERFACE ssp)
    if(OMBRY_TESTS)
        # What the other compiler's tools do in seconds takes those that belong to this one minutes: for each section they
        # go through all before it. A compiler for another system has the paths of its linker built in, but not that of
        # the program that it links by.
        find_program(OMBRY_LLD ld.lld REQUIRED)
        set(collect2 "${CMAKE_BINARY_DIR}/linker/collect2")
        file(CONFIGURE OUTPUT "${collect2}" CONTENT "#!/bin/sh\nexec \"${OMBRY_LLD}\" \"$@\"\n")
        file(CHMOD "${collect2}" PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE)
        add_link_options("-B${CMAKE_BINARY_DIR}/linker" -fno-use-linker-plugin)
        find_program(OMBRY_AR llvm-ar REQUIRED)
        find_program(OMBRY_RANLIB llvm-ranlib REQUIRED)
        set(CMAKE_AR "${OMBRY_AR}")
        set(CMAKE_RANLIB "${OMBRY_RANLIB}")
    endif()
else()
    target_link_options(ombry_options INTERFACE "$<BUILD_INTERFACE:-Wl,-z,relro,-z,now>")
    # The tests are half a hundred executables, each linked in a fifth of the time.
    find_program(OMBRY_LLD ld.lld)
    if(OMBRY_TESTS AND OMBRY_LLD)
        add_link_options(-fuse-ld=lld)
    endif()
endif()

if(OMBRY_SANITIZE)
    add_compile_options(-fsanitize=${OMBRY_SANITIZE} -fno-omit-frame-pointer -O1)
    if(OMBRY_SANITIZE MATCHES "undefined")
        add_compile_options(-fno-sanitize-recover=all)
    endif()
    add_link_options(-fsanitize=${OMBRY_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
        # As GCC has it: the code learns of the sanitizer by this name.
        if(OMBRY_SANITIZE MATCHES "address|thread")
            string(TOUPPER "__SANITIZE_${CMAKE_MATCH_0}__" sanitized)
            add_compile_definitions(${sanitized}=1)
        endif()
        # What clang 19 does by itself: without it the tests' own operator of that kind is not seen outside.
        add_compile_options(-fsized-deallocation)
        if(OMBRY_SANITIZE MATCHES "address")
            # As GCC has it, too: the runtime is a shared library, behind which the fakes of library functions can stand.
            execute_process(COMMAND ${CMAKE_CXX_COMPILER}
                                    -print-file-name=libclang_rt.asan-${CMAKE_SYSTEM_PROCESSOR}.so
                            OUTPUT_VARIABLE runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
            cmake_path(GET runtime PARENT_PATH runtime_dir)
            add_link_options(-shared-libsan -Wl,-rpath,${runtime_dir})
        endif()
    endif()
endif()

# RapidJSON. The macros change the library's inline code, so they stand here alone: two translation units with
# different values would break the one-definition rule.
#   iterative parsing: hostile nesting must not exhaust the stack
#   no asserts: a second root value or a value without a key is stated behaviour of the writer
find_path(OMBRY_RAPIDJSON_INCLUDE rapidjson/document.h REQUIRED NO_CMAKE_FIND_ROOT_PATH)
if(CMAKE_CROSSCOMPILING)
    # It is headers, which serve any system. Those that lie beside it serve this one alone, and must not be found.
    file(MAKE_DIRECTORY "${CMAKE_BINARY_DIR}/include")
    file(CREATE_LINK "${OMBRY_RAPIDJSON_INCLUDE}/rapidjson" "${CMAKE_BINARY_DIR}/include/rapidjson" SYMBOLIC)
    set(OMBRY_RAPIDJSON_INCLUDE "${CMAKE_BINARY_DIR}/include")
endif()
add_library(ombry_rapidjson INTERFACE)
target_include_directories(ombry_rapidjson SYSTEM INTERFACE $<BUILD_INTERFACE:${OMBRY_RAPIDJSON_INCLUDE}>)
# As options: CMake drops a macro with arguments from the list of definitions.
target_compile_options(ombry_rapidjson INTERFACE
    $<BUILD_INTERFACE:-DRAPIDJSON_PARSE_DEFAULT_FLAGS=kParseIterativeFlag>
    "$<BUILD_INTERFACE:-DRAPIDJSON_ASSERT(x)=((void)0)>")
# The library's stack adds an offset to a null pointer before its first allocation, which clang reports.
if(OMBRY_SANITIZE MATCHES "undefined")
    target_compile_options(ombry_rapidjson INTERFACE $<BUILD_INTERFACE:-fno-sanitize=pointer-overflow>)
endif()

# A folder is a library, and the library is the folder: adding a source file needs no second entry. Its name for
# others, in the tree as after an installation, is Ombry:: and the folder.
function(ombry_library name)
    cmake_parse_arguments(PARSE_ARGV 1 arg "" "" "EXCLUDE;PUBLIC;PRIVATE")
    file(GLOB sources CONFIGURE_DEPENDS RELATIVE ${CMAKE_CURRENT_SOURCE_DIR} "*.cpp" "Impl/*.cpp"
         "${CMAKE_SYSTEM_NAME}/*.cpp")
    list(REMOVE_ITEM sources "" ${arg_EXCLUDE})
    file(GLOB headers CONFIGURE_DEPENDS "*.h" "Impl/*.h")
    if(sources)
        add_library(${name} STATIC ${sources} ${headers})
        target_link_libraries(${name} PUBLIC ombry_options ${arg_PUBLIC} PRIVATE ${arg_PRIVATE})
        target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-Wconversion>)
        if(OMBRY_FUZZ)
            # Coverage guides the fuzzer through the whole stack.
            target_compile_options(${name} PRIVATE -fsanitize=fuzzer-no-link)
        endif()
        if(OMBRY_COVERAGE)
            # The libraries alone: what the tests reach of themselves is of no interest. Threads count too.
            target_compile_options(${name} PRIVATE --coverage -fprofile-update=atomic)
            target_link_options(${name} PUBLIC --coverage)
        endif()
    else()
        add_library(${name} INTERFACE)
        target_link_libraries(${name} INTERFACE ombry_options ${arg_PUBLIC})
    endif()
    cmake_path(GET CMAKE_CURRENT_SOURCE_DIR FILENAME folder)
    set_target_properties(${name} PROPERTIES EXPORT_NAME ${folder})
    add_library(Ombry::${folder} ALIAS ${name})
endfunction()

# Of a library whose headers take a sanitizer's compiler twice as long once it optimises, and whose own speed no test waits for.
function(ombry_slow_to_optimise name)
    if(OMBRY_SANITIZE)
        target_compile_options(${name} PRIVATE -O0)
    endif()
endfunction()
