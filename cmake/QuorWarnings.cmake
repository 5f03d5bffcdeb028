# Warnings for every target of the project. They are errors only when this is the top-level
# project (our own builds and CI): inside an app's build, another compiler's or a newer
# compiler's new warnings must not break the app. QUOR_CS_WARNINGS_AS_ERRORS overrides.
option(QUOR_CS_WARNINGS_AS_ERRORS "Treat warnings as errors" ${QUOR_CS_TOP_LEVEL})

function(quor_cs_warnings target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 $<$<BOOL:${QUOR_CS_WARNINGS_AS_ERRORS}>:/WX>)
  else()
    # GCC and Clang (and compilers that accept their spelling).
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic
      $<$<BOOL:${QUOR_CS_WARNINGS_AS_ERRORS}>:-Werror>)
  endif()
endfunction()
