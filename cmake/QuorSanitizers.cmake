# Sanitizer builds: QUOR_CS_SANITIZE=address (AddressSanitizer with UndefinedBehaviorSanitizer,
# halting on the first report) or thread (ThreadSanitizer).
if(QUOR_CS_SANITIZE STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  add_link_options(-fsanitize=address,undefined -fno-sanitize-recover=all)
elseif(QUOR_CS_SANITIZE STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(NOT QUOR_CS_SANITIZE STREQUAL "")
  message(FATAL_ERROR "QUOR_CS_SANITIZE must be '', 'address' or 'thread'")
endif()
