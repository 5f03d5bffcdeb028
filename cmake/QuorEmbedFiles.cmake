# Writes a C++ source that holds files as string constants (the console's page), so that the
# program serves them without reading anything at run time.
# Usage: cmake -DOUTPUT=file.cpp -DNAMES=kA|kB -DFILES=a.html|b.js -P QuorEmbedFiles.cmake
string(REPLACE "|" ";" NAMES "${NAMES}")
string(REPLACE "|" ";" FILES "${FILES}")
set(content "// Generated from the console's web files; edit those instead.\n")
string(APPEND content "#include \"QuorConsoleAssets.h\"\n\nnamespace quor::console {\n")
foreach(name file IN ZIP_LISTS NAMES FILES)
  file(READ ${file} text)
  string(FIND "${text}" ")QUOR_ASSET\"" clash)
  if(NOT clash EQUAL -1)
    message(FATAL_ERROR "${file} contains the literal's delimiter")
  endif()
  string(APPEND content "extern const char ${name}[] = R\"QUOR_ASSET(${text})QUOR_ASSET\";\n")
endforeach()
string(APPEND content "}  // namespace quor::console\n")
file(WRITE ${OUTPUT}.new "${content}")
file(COPY_FILE ${OUTPUT}.new ${OUTPUT} ONLY_IF_DIFFERENT)
file(REMOVE ${OUTPUT}.new)
