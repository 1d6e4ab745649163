# The manual for a browser and for an editor, an installer and archives.
#
#   component "tool"         -> ombry-sec-client-config-VERSION-win64.exe, the installer, and .zip
#   component "development"  -> libombry-dev-VERSION-win64.zip, for the compiler that it was built with
find_program(OMBRY_MANDOC mandoc REQUIRED)
find_program(OMBRY_GROFF groff REQUIRED)
configure_file(Ombry.SecClientConfig.1 Ombry.SecClientConfig.1 @ONLY)
set(manual "${CMAKE_CURRENT_BINARY_DIR}/Ombry.SecClientConfig")
execute_process(COMMAND "${OMBRY_MANDOC}" -T html -O style=none "${manual}.1"
                OUTPUT_FILE "${manual}.html" COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND "${OMBRY_GROFF}" -man -Tutf8 -P-cbou "${manual}.1"
                OUTPUT_FILE "${manual}.unix.txt" COMMAND_ERROR_IS_FATAL ANY)
configure_file("${manual}.unix.txt" "${manual}.txt" @ONLY NEWLINE_STYLE DOS)

install(FILES "${manual}.html" "${manual}.txt" DESTINATION doc COMPONENT tool)
foreach(component IN ITEMS tool development)
    foreach(document IN ITEMS copyright changelog)
        configure_file(${document} ${document}.txt @ONLY NEWLINE_STYLE DOS)
        install(FILES "${CMAKE_CURRENT_BINARY_DIR}/${document}.txt" DESTINATION doc COMPONENT ${component})
    endforeach()
endforeach()

set(CPACK_GENERATOR NSIS ZIP)
set(CPACK_PACKAGE_NAME ombry)
set(CPACK_PACKAGE_VENDOR Ombry)
set(CPACK_COMPONENTS_ALL tool development)
set(CPACK_STRIP_FILES ON)
set(CPACK_ARCHIVE_COMPONENT_INSTALL ON)
set(CPACK_ARCHIVE_TOOL_FILE_NAME ombry-sec-client-config-${PROJECT_VERSION}-win64)
set(CPACK_ARCHIVE_DEVELOPMENT_FILE_NAME libombry-dev-${PROJECT_VERSION}-win64)
# The installer is for those who run the tool. A template of our own: CPack's makes a program of 32 bits.
set(CPACK_PROJECT_CONFIG_FILE "${CMAKE_CURRENT_SOURCE_DIR}/WindowsInstaller.cmake")
set(CPACK_PACKAGE_FILE_NAME ombry-sec-client-config-${PROJECT_VERSION}-win64)
set(CPACK_PACKAGE_INSTALL_DIRECTORY Ombry)
set(CPACK_PACKAGE_INSTALL_REGISTRY_KEY Ombry.SecClientConfig)
set(CPACK_NSIS_DISPLAY_NAME Ombry.SecClientConfig)
set(CPACK_MODULE_PATH "${CMAKE_CURRENT_SOURCE_DIR}")  # where the template is
