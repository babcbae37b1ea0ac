# cmake -DOUTPUT=FILE -DDIRECTORY=DIR -P EmbedPage.cmake: writes a C++ source with the content of all
# files of a directory.
file(GLOB names RELATIVE ${DIRECTORY} ${DIRECTORY}/*)
set(source "#include \"inspector/EmbeddedPage.h\"\n\n")
string(APPEND source "const std::vector<PageFile>& pageFiles() {\n")
string(APPEND source "  static const std::vector<PageFile> files{\n")
foreach(name ${names})
  file(READ ${DIRECTORY}/${name} content)
  string(APPEND source "{\"${name}\", R\"EMBEDDED(${content})EMBEDDED\"},\n")
endforeach()
string(APPEND source "  };\n  return files;\n}\n")
file(WRITE ${OUTPUT} "${source}")
