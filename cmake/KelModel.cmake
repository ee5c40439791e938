# kel_add_model(TARGET MODEL [NAME PATH])
#
# Compiles a model file with kelc, adds the generated source to TARGET and puts the generated header on its include path
# as PATH.h. PATH defaults to the model's base name; a model that others import as "Zuk/PathTrie.kel" needs the NAME
# Zuk/PathTrie. Imports are looked for beside the importing model, below the project's source directory, and in the
# include directories of TARGET, those of the libraries that it links included.
#
# Generated files go to the folder `gen` of the build directory. They are rewritten only when their content changes, and
# made again when the model, anything that it imports, or kelc itself changes. Two targets may name the same model.

include_guard(GLOBAL)

function(kel_add_model target model)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "NAME" "")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "kel_add_model: unexpected ${arg_UNPARSED_ARGUMENTS}")
  endif()
  get_filename_component(source "${model}" ABSOLUTE)
  set(name "${arg_NAME}")
  if(NOT name)
    get_filename_component(name "${model}" NAME_WLE)
  endif()

  set(gen "${CMAKE_BINARY_DIR}/gen")
  set(generated "${gen}/${name}.cpp" "${gen}/${name}.h")
  string(MAKE_C_IDENTIFIER "model_${name}" rule)
  if(NOT TARGET ${rule})
    _kel_model_rule(${rule} ${target} "${source}" "${name}" "${gen}")
  endif()

  set_source_files_properties(${generated} PROPERTIES GENERATED TRUE)
  target_sources(${target} PRIVATE ${generated})
  target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${gen}>")
  add_dependencies(${target} ${rule})
endfunction()

# The custom target that runs kelc. What it stands for is a stamp: the generated files keep their time when they did not
# change, and would look out of date for ever.
function(_kel_model_rule rule target source name gen)
  if(TARGET kelc)
    set(kelc kelc)
  elseif(TARGET Kel::kelc)
    set(kelc Kel::kelc)
  else()
    find_program(KELC_EXECUTABLE kelc REQUIRED)
    set(kelc "${KELC_EXECUTABLE}")
  endif()
  set(stamp "${gen}/${name}.stamp")
  set(dirs "$<TARGET_PROPERTY:${target},INCLUDE_DIRECTORIES>")
  add_custom_command(
    OUTPUT "${stamp}"
    BYPRODUCTS "${gen}/${name}.cpp" "${gen}/${name}.h"
    COMMAND ${kelc} "-I${PROJECT_SOURCE_DIR}" "$<$<BOOL:${dirs}>:-I$<JOIN:${dirs},;-I>>" -o "${gen}" --name "${name}"
            --depfile "${stamp}.d" --deptarget "${stamp}" "${source}"
    COMMAND ${CMAKE_COMMAND} -E touch "${stamp}"
    DEPENDS "${source}" ${kelc}
    DEPFILE "${stamp}.d"
    COMMENT "Compiling model ${name}"
    COMMAND_EXPAND_LISTS
    VERBATIM)
  add_custom_target(${rule} DEPENDS "${stamp}")
endfunction()
