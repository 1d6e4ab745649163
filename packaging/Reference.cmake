# The reference of the libraries for those who write programs on them, made of the comments of the public headers.
# Whatever a program can call has to be documented: a warning fails the builds of developers.
set(DOXYGEN_PROJECT_NAME "Ombry client libraries")
set(DOXYGEN_PROJECT_NUMBER ${PROJECT_VERSION})
set(DOXYGEN_OUTPUT_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/reference")
set(DOXYGEN_STRIP_FROM_PATH "${PROJECT_SOURCE_DIR}")
set(DOXYGEN_USE_MDFILE_AS_MAINPAGE "${PROJECT_SOURCE_DIR}/docs/reference.md")
set(DOXYGEN_JAVADOC_AUTOBRIEF YES)
set(DOXYGEN_DISTRIBUTE_GROUP_DOC YES)
set(DOXYGEN_BUILTIN_STL_SUPPORT YES)
set(DOXYGEN_QUIET YES)
set(DOXYGEN_WARN_IF_UNDOCUMENTED YES)
if(OMBRY_WERROR)
    set(DOXYGEN_WARN_AS_ERROR FAIL_ON_WARNINGS)
endif()
# Pages without a search, and without graphs, which would depend on what else is installed.
set(DOXYGEN_HAVE_DOT NO)
set(DOXYGEN_CLASS_GRAPH NO)
set(DOXYGEN_SEARCHENGINE NO)
set(DOXYGEN_HTML_DYNAMIC_MENUS NO)
set(DOXYGEN_VERBATIM_HEADERS NO)

# What a program does not call: other public headers include these, and their comments say so.
set(DOXYGEN_EXCLUDE_SYMBOLS
    FailureInfo FoundServicesDto IAuthenticator IClientCredentials IClientCredentialsFactory IClientCredentialsStore
    IDataProtection IFailedServices IFoundServicesCache IHttpClientServiceGatewayFactory IKeyValueStorage
    ILocalServiceLookup INamedStorage IOAuth2Client IPostSaveHook IRetryDelayIterator IRetryDelayIteratorFactory IStorage
    LocalServiceStorageDto OAuth2Token OmbrySecurityConfig ServiceCandidate ServiceDto ZephSorrelSyncConnectionIf)

list(TRANSFORM called PREPEND "${PROJECT_SOURCE_DIR}/" OUTPUT_VARIABLE headers)
doxygen_add_docs(reference "${PROJECT_SOURCE_DIR}/docs/reference.md" ${headers}
    ALL USE_STAMP_FILE COMMENT "Making the reference of the libraries")
