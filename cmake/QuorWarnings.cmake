# Warnings as errors for every target of the project.
function(quor_cs_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
endfunction()
