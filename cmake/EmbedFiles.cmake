# Writes files into a C++ source as an array of SCA_TrainingDocument, which a null name ends.
# cmake -D FILES=A,B -D OUTPUT=FILE -P EmbedFiles.cmake
string(REPLACE "," ";" files "${FILES}")
set(arrays "")
set(rows "")
set(number 0)
foreach(file IN LISTS files)
  get_filename_component(name "${file}" NAME)
  file(READ "${file}" bytes HEX)
  string(LENGTH "${bytes}" digits)
  math(EXPR length "${digits} / 2")
  string(REGEX REPLACE "(..)" "0x\\1," bytes "${bytes}")
  string(APPEND arrays "constexpr unsigned char kBytes${number}[] = {${bytes}};\n")
  string(APPEND rows "    {\"${name}\", kBytes${number}, ${length}},\n")
  math(EXPR number "${number} + 1")
endforeach()
file(WRITE "${OUTPUT}" "#include \"supervision/SCA_ClassTraining.h\"\n\nnamespace {\n${arrays}}\n\n"
  "const SCA_TrainingDocument SCA_TrainingDocuments[] = {\n${rows}    {nullptr, nullptr, 0}};\n")
