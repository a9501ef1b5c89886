# Where this file and its templates lie, for the functions below that use them.
set(VELL_CMAKE_DIR ${CMAKE_CURRENT_LIST_DIR})

# Helpers every target of the tree goes through, so that warnings, sanitizers,
# include roots and the test harness are decided in one place.
include_guard(GLOBAL)

option(VELL_SANITIZE "Build our code with AddressSanitizer and UndefinedBehaviorSanitizer" OFF)
option(VELL_FUZZ "Build only the libFuzzer targets in fuzz/ and the libraries they exercise" OFF)

set(VELL_SANITIZER_FLAGS -fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)

# Warnings as errors in our code; sanitizers unless the target opts out (the module
# runner does: its address-space limit and syscall filter cannot coexist with ASan).
function(vell_apply_defaults target)
    cmake_parse_arguments(ARG "NO_SANITIZE" "" "" ${ARGN})
    target_compile_options(${target} PRIVATE -Wall -Wextra -Werror)
    target_compile_definitions(${target} PRIVATE QT_NO_FOREACH)
    if(VELL_SANITIZE AND NOT ARG_NO_SANITIZE)
        target_compile_options(${target} PRIVATE ${VELL_SANITIZER_FLAGS})
        target_link_options(${target} PUBLIC ${VELL_SANITIZER_FLAGS})
    endif()
endfunction()

# vell_add_library(Name SOURCES a.cpp a.h ... LIBS Qt6::Core ... [NO_SANITIZE])
function(vell_add_library name)
    cmake_parse_arguments(ARG "NO_SANITIZE" "" "SOURCES;LIBS" ${ARGN})
    add_library(${name} STATIC ${ARG_SOURCES})
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PUBLIC ${ARG_LIBS})
    if(ARG_NO_SANITIZE)
        vell_apply_defaults(${name} NO_SANITIZE)
    else()
        vell_apply_defaults(${name})
    endif()
endfunction()

# vell_add_plain_variant(Lib): defines LibPlain, the same library from the same sources built
# without sanitizers, for executables that must never carry them (the module runner) and still
# share the library's records. Without VELL_SANITIZE it is the library itself.
function(vell_add_plain_variant name)
    if(TARGET ${name}Plain)
        return()
    endif()
    if(NOT VELL_SANITIZE)
        add_library(${name}Plain ALIAS ${name})
        return()
    endif()
    get_target_property(dir ${name} SOURCE_DIR)
    get_target_property(sources ${name} SOURCES)
    get_target_property(libs ${name} LINK_LIBRARIES)
    set(plain_sources)
    foreach(source ${sources})
        cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${dir} OUTPUT_VARIABLE source)
        list(APPEND plain_sources ${source})
    endforeach()
    set(plain_libs)
    foreach(lib ${libs})
        # Only our own libraries get a plain twin; imported ones (Qt's, QtKeychain's) are linked as they are.
        if(TARGET ${lib} AND NOT lib MATCHES "::")
            get_target_property(imported ${lib} IMPORTED)
            if(NOT imported)
                vell_add_plain_variant(${lib})
                set(lib ${lib}Plain)
            endif()
        endif()
        list(APPEND plain_libs ${lib})
    endforeach()
    vell_add_library(${name}Plain NO_SANITIZE SOURCES ${plain_sources} LIBS ${plain_libs})
endfunction()

# vell_add_executable(Name SOURCES ... LIBS ... [DESTINATION bin|libexec/ostavell] [NO_SANITIZE])
# Executables land in <build>/bin or <build>/libexec/ostavell, the same relative layout as an
# installed tree, so that the app finds its runner and helpers the same way in both.
function(vell_add_executable name)
    cmake_parse_arguments(ARG "NO_SANITIZE" "DESTINATION" "SOURCES;LIBS" ${ARGN})
    if(NOT ARG_DESTINATION)
        set(ARG_DESTINATION bin)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/${ARG_DESTINATION})
    if(ARG_NO_SANITIZE)
        vell_apply_defaults(${name} NO_SANITIZE)
    else()
        vell_apply_defaults(${name})
    endif()
    install(TARGETS ${name} RUNTIME DESTINATION ${ARG_DESTINATION})
endfunction()

# vell_add_test(tst_name SOURCES ... LIBS ... [X11] [SCREEN 1920x1080] [TIMEOUT s] [ENVIRONMENT K=V ...])
# Every test runs inside scripts/test-session: private XDG folders and a private session bus,
# and with X11 a private Xvfb with a window manager. No test touches a real home or display.
function(vell_add_test name)
    cmake_parse_arguments(ARG "X11" "SCREEN;TIMEOUT" "SOURCES;LIBS;ENVIRONMENT;DEPENDS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} PRIVATE Qt6::Test ${ARG_LIBS})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
    vell_apply_defaults(${name})
    if(ARG_DEPENDS)
        add_dependencies(${name} ${ARG_DEPENDS})
    endif()
    set(session_args)
    set(env "VELL_BUILD_DIR=${CMAKE_BINARY_DIR}" "VELL_SOURCE_DIR=${PROJECT_SOURCE_DIR}"
        "VELL_TEST_DATA=${CMAKE_CURRENT_SOURCE_DIR}/data"
        "UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1")
    if(ARG_X11)
        if(NOT ARG_SCREEN)
            set(ARG_SCREEN 1920x1080)
        endif()
        list(APPEND session_args --x11 --screen ${ARG_SCREEN})
        # Qt, fontconfig and Mesa keep process-lifetime allocations that LeakSanitizer reports.
        list(APPEND env "QT_QPA_PLATFORM=xcb" "ASAN_OPTIONS=detect_leaks=0")
    else()
        list(APPEND env "QT_QPA_PLATFORM=offscreen" "ASAN_OPTIONS=detect_leaks=1")
    endif()
    add_test(NAME ${name} COMMAND ${PROJECT_SOURCE_DIR}/scripts/test-session ${session_args} -- $<TARGET_FILE:${name}>)
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 120)
    endif()
    set_tests_properties(${name} PROPERTIES ENVIRONMENT "${env};${ARG_ENVIRONMENT}" TIMEOUT ${ARG_TIMEOUT})
endfunction()

# vell_add_bench(name SOURCES ... LIBS ...): a program in <build>/benchmarks that `make bench` runs.
# Benchmarks print ratios against a baseline measured in the same run, never absolute verdicts.
function(vell_add_bench name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS;DEPENDS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    # bench/ too, for what the benches share (ProcessFigures.h).
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src ${PROJECT_SOURCE_DIR}/bench)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS})
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/benchmarks)
    vell_apply_defaults(${name})
    if(ARG_DEPENDS)
        add_dependencies(${name} ${ARG_DEPENDS})
    endif()
endfunction()

# vell_add_fuzzer(name SOURCES ... LIBS ...): a libFuzzer target in <build>/fuzzers, built by the
# fuzz preset (clang) and run for a minute each by `make fuzz`.
function(vell_add_fuzzer name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBS" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/src)
    target_link_libraries(${name} PRIVATE ${ARG_LIBS})
    target_compile_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer,address,undefined)
    set_target_properties(${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/fuzzers)
endfunction()

# vell_add_qml_module(Name URI Uri SOURCES ... [QML_FILES ...] [RESOURCES ...] LIBS ...): one area of
# the app (Support, a kind of module, a feature, the shell): a static library that is also a QML
# module, its C++ types registered from their own declarations. Every such module is remembered,
# so that vell_link_qml_modules() links and imports them all without a list kept by hand.
function(vell_add_qml_module name)
    cmake_parse_arguments(ARG "" "URI" "SOURCES;QML_FILES;RESOURCES;LIBS" ${ARGN})
    qt_add_library(${name} STATIC)
    string(REPLACE "." "/" target_path "${ARG_URI}")
    qt_add_qml_module(${name}
        URI ${ARG_URI}
        VERSION 1.0
        OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/qml/${target_path}
        RESOURCE_PREFIX /qt/qml
        QML_FILES ${ARG_QML_FILES}
        RESOURCES ${ARG_RESOURCES}
        SOURCES ${ARG_SOURCES}
    )
    target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR}/src)
    # The generated type registration includes each header by its bare name.
    target_include_directories(${name} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${name} PUBLIC ${ARG_LIBS})
    vell_apply_defaults(${name})
    string(REPLACE "." "_" plugin_class "${ARG_URI}")
    set_property(GLOBAL APPEND PROPERTY VELL_QML_LIBRARIES ${name})
    set_property(GLOBAL APPEND PROPERTY VELL_QML_PLUGINS ${name}plugin)
    set_property(GLOBAL APPEND PROPERTY VELL_QML_PLUGIN_CLASSES ${plugin_class}Plugin)
endfunction()

# vell_link_qml_modules(Target): links every QML module of the app into Target and imports their
# static plugins, so that the engine finds each module's types and views.
function(vell_link_qml_modules target)
    get_property(plugins GLOBAL PROPERTY VELL_QML_PLUGINS)
    get_property(classes GLOBAL PROPERTY VELL_QML_PLUGIN_CLASSES)
    set(content "#include <QtQml/qqmlextensionplugin.h>\n\n")
    foreach(class ${classes})
        string(APPEND content "Q_IMPORT_QML_PLUGIN(${class})\n")
    endforeach()
    set(imports ${CMAKE_BINARY_DIR}/generated/VellQmlImports.cpp)
    file(CONFIGURE OUTPUT ${imports} CONTENT "${content}")
    target_sources(${target} PRIVATE ${imports})
    target_link_libraries(${target} PRIVATE ${plugins})
endfunction()

# vell_plugin_signing_key(VAR LABEL): a throwaway ed25519 key made once per build tree in the
# current binary folder, for signing the plugin bundles built there. The host accepts any
# signer, so a throwaway key proves as much as a real one.
function(vell_plugin_signing_key var label)
    set(key ${CMAKE_CURRENT_BINARY_DIR}/signing-key)
    find_program(VELL_SSH_KEYGEN ssh-keygen PATHS /usr/bin REQUIRED)
    add_custom_command(OUTPUT ${key}
        COMMAND ${CMAKE_COMMAND} -E rm -f ${key} ${key}.pub
        COMMAND ${VELL_SSH_KEYGEN} -t ed25519 -N "" -q -C ${label} -f ${key}
        COMMENT "Making a signing key for ${label}"
        VERBATIM)
    set(${var} ${key} PARENT_SCOPE)
endfunction()

# vell_add_plugin_bundle(Name DESTINATION dir KEY key STAMPS var EXECUTABLE exe MANIFEST file
#                        [TARGET target | SCRIPT file]):
# a bundle dir/Name.app laid out as the host installs it (Contents/Info.plist, Contents/MacOS/exe,
# Contents/Resources/VellPlugin.json), whose executable is either a target built into it or a
# script copied into it. It is signed with key whenever its executable, its manifest or its
# Info.plist changes; the stamp that records this lies outside the bundle, since everything
# inside is signed, and is appended to the list var for a target to depend on.
function(vell_add_plugin_bundle name)
    cmake_parse_arguments(ARG "" "DESTINATION;KEY;STAMPS;EXECUTABLE;MANIFEST;TARGET;SCRIPT" "" ${ARGN})
    set(bundle ${ARG_DESTINATION}/${name}.app)
    set(contents ${bundle}/Contents)
    file(READ ${ARG_MANIFEST} manifest)
    string(JSON VELL_BUNDLE_IDENTIFIER GET "${manifest}" id)
    set(VELL_BUNDLE_NAME ${name})
    set(VELL_BUNDLE_EXECUTABLE ${ARG_EXECUTABLE})
    configure_file(${VELL_CMAKE_DIR}/PluginInfo.plist.in ${contents}/Info.plist @ONLY)
    configure_file(${ARG_MANIFEST} ${contents}/Resources/VellPlugin.json COPYONLY)
    if(ARG_TARGET)
        set_target_properties(${ARG_TARGET} PROPERTIES
            OUTPUT_NAME ${ARG_EXECUTABLE} RUNTIME_OUTPUT_DIRECTORY ${contents}/MacOS)
        set(executable ${ARG_TARGET})
    else()
        file(GENERATE OUTPUT ${contents}/MacOS/${ARG_EXECUTABLE} INPUT ${ARG_SCRIPT}
             FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
        set(executable ${contents}/MacOS/${ARG_EXECUTABLE})
    endif()
    set(stamp ${CMAKE_CURRENT_BINARY_DIR}/${name}.signed)
    add_custom_command(OUTPUT ${stamp}
        COMMAND vellctl plugin sign ${bundle} ${ARG_KEY}
        COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
        DEPENDS ${executable} ${contents}/Info.plist ${contents}/Resources/VellPlugin.json ${ARG_KEY}
        COMMENT "Signing the ${name} plugin"
        VERBATIM)
    set(${ARG_STAMPS} ${${ARG_STAMPS}} ${stamp} PARENT_SCOPE)
endfunction()
