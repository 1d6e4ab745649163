# The doctor, manual pages, completions, and the Debian packages.
#
#   component "tool"         -> ombry-sec-client-config
#   component "development"  -> libombry-dev
#   component "sandbox"      the service to rehearse with, if it is built                  -> ombry-sandbox
#   component "reference"    the pages made of the public headers, if doxygen is at hand   -> libombry-doc
set(components tool development)
set(packages ombry-sec-client-config libombry-dev)
if(OMBRY_SANDBOX)
    list(APPEND components sandbox)
    list(APPEND packages ombry-sandbox)
endif()
if(NOT OMBRY_SANITIZE)  # nobody packs those
    find_package(Doxygen QUIET)
endif()
if(DOXYGEN_FOUND)
    list(APPEND components reference)
    list(APPEND packages libombry-doc)
endif()

# Documents are installed compressed, without a time stamp, so that equal sources give equal packages.
find_program(GZIP gzip REQUIRED)
function(install_compressed name destination component)
    configure_file(${name} ${name} @ONLY)
    execute_process(COMMAND "${GZIP}" -9nf ${name} WORKING_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}"
                    COMMAND_ERROR_IS_FATAL ANY)
    install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${name}.gz" DESTINATION ${destination} COMPONENT ${component})
endfunction()

# What the compiler's own start-up code says of itself is no use to anybody, and stripping leaves it.
function(remove_comment program component)
    install(CODE "if(CMAKE_INSTALL_DO_STRIP)
        execute_process(COMMAND \"${CMAKE_OBJCOPY}\" --remove-section=.comment
                        \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}/${program}\"
                        COMMAND_ERROR_IS_FATAL ANY)
    endif()" COMPONENT ${component})
endfunction()

install(TARGETS ombry-doctor RUNTIME COMPONENT tool)
remove_comment(Ombry.SecClientConfig tool)
remove_comment(ombry-doctor tool)
foreach(program Ombry.SecClientConfig ombry-doctor)
    install_compressed(${program}.1 ${CMAKE_INSTALL_MANDIR}/man1 tool)
    install(FILES ${program}.bash-completion RENAME ${program}
            DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tool)
endforeach()
install(FILES "${PROJECT_SOURCE_DIR}/Doctor/ombry-doctor.schema.json"
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/ombry-sec-client-config COMPONENT tool)
foreach(component package IN ZIP_LISTS components packages)
    set(documents "${CMAKE_INSTALL_DATADIR}/doc/${package}")
    install(FILES copyright DESTINATION ${documents} COMPONENT ${component})
    install_compressed(changelog ${documents} ${component})
endforeach()

if(OMBRY_SANDBOX)
    install(TARGETS ombry-sandbox RUNTIME COMPONENT sandbox)
    remove_comment(ombry-sandbox sandbox)
    install_compressed(ombry-sandbox.1 ${CMAKE_INSTALL_MANDIR}/man1 sandbox)
    install(FILES ombry-sandbox.service DESTINATION lib/systemd/system COMPONENT sandbox)
endif()

# For those who build without CMake. It finds its prefix from where it lies, as the CMake package does.
cmake_path(SET pkgconfig_dir NORMALIZE "lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig")
file(RELATIVE_PATH pkgconfig_to_prefix "/${pkgconfig_dir}" /)
configure_file(ombry.pc.in ombry.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/ombry.pc" DESTINATION ${pkgconfig_dir} COMPONENT development)

if(DOXYGEN_FOUND)
    include(Reference.cmake)
    install(DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/reference/html"
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libombry-doc COMPONENT reference)
    install(FILES libombry-doc.doc-base RENAME libombry-doc
            DESTINATION ${CMAKE_INSTALL_DATADIR}/doc-base COMPONENT reference)
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME ombry)
set(CPACK_PACKAGE_VENDOR Ombry)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
    WORLD_READ WORLD_EXECUTE)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "Ombry maintainers <maintainers@ombry.invalid>")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME ombry-sec-client-config)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)
configure_file(postrm.in postrm @ONLY)
set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_BINARY_DIR}/postrm")
set(CPACK_DEBIAN_TOOL_PACKAGE_CONTROL_STRICT_PERMISSION TRUE)
# The first line is the synopsis; the packer indents the others.
set(CPACK_COMPONENT_TOOL_DESCRIPTION "tie a machine to a Security Framework service
Lists the datacenters of a Security Framework service, ties this machine to
one of them, and enrols and removes clients and services. A second program,
ombry-doctor, tells what state the machine is in.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libombry-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libssl-dev (>= 3)")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "client libraries for a Security Framework service
Discovery with fail-over, token caches, protected secrets, object mapping and
a network core with TLS, as static libraries with headers and a CMake package.")

set(CPACK_DEBIAN_SANDBOX_PACKAGE_NAME ombry-sandbox)
set(CPACK_DEBIAN_SANDBOX_PACKAGE_SECTION admin)
set(CPACK_DEBIAN_SANDBOX_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_SANDBOX_DESCRIPTION "Security Framework service to rehearse with
A small service that machines can be tied to and clients enrolled with, before
that is done with a real one. It shows on a page what it is asked as it comes,
and fails as it is told to.")

set(CPACK_DEBIAN_REFERENCE_PACKAGE_NAME libombry-doc)
set(CPACK_DEBIAN_REFERENCE_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_REFERENCE_PACKAGE_ARCHITECTURE all)
set(CPACK_COMPONENT_REFERENCE_DESCRIPTION "client libraries for a Security Framework service (reference)
What a program can call of the libraries in libombry-dev: settings with units
and defaults, failures, ownership and threads, as pages for a browser.")
