# Read by CPack for each kind of package.
if(CPACK_GENERATOR STREQUAL "NSIS")
    set(CPACK_COMPONENTS_ALL tool)
    set(CPACK_MONOLITHIC_INSTALL OFF)
endif()
