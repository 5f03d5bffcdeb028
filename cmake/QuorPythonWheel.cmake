# A Python wheel (scikit-build-core sets SKBUILD): a C library, unversioned, and its header go
# into the package folder quor_cs; a wheel's files cannot be symbolic links.
function(quor_cs_wheel_install target header)
  if(NOT SKBUILD)
    return()
  endif()
  set_property(TARGET ${target} PROPERTY VERSION)
  set_property(TARGET ${target} PROPERTY SOVERSION)
  install(TARGETS ${target} LIBRARY DESTINATION quor_cs COMPONENT PythonWheel NAMELINK_SKIP)
  install(FILES ${PROJECT_SOURCE_DIR}/include/QuorCustomerService/${header} DESTINATION quor_cs
    COMPONENT PythonWheel)
endfunction()
