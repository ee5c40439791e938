# kel_add_model(TARGET MODEL [NAME PATH] [EXPORT] [PARTS N])
#
# Compiles a model file with kelc, adds the generated source to TARGET and puts the generated header on its include path
# as PATH.h. PATH defaults to the model's base name; a model that others import as "Zuk/PathTrie.kel" needs the NAME
# Zuk/PathTrie. Imports are looked for beside the importing model, below the project's source directory, and in the
# include directories of TARGET, those of the libraries that it links included.
#
# If TARGET is a library, every target that links it gets the model's types, even if it only makes entities by name: the
# linker is told to take the generated object from a static archive, and to keep a shared library under `--as-needed`.
#
# A library that is compiled with hidden symbols needs EXPORT so that others can use the model's classes from C++.
#
# PARTS spreads the generated definitions over N sources, so that a large model is compiled by several processors.
#
# Each target has its own folder for generated files, in its property KEL_GEN_DIR. Files are rewritten only when their
# content changes, and made again when the model, anything that it imports, or kelc itself changes. The target kel_models
# makes those of all models, for tools that read sources before they are compiled. The variable KELC_EXECUTABLE replaces
# the kelc of this build or package, for example by one that runs on the host of a cross build.

include_guard(GLOBAL)

function(kel_add_model target model)
  cmake_parse_arguments(PARSE_ARGV 2 arg "EXPORT" "NAME;PARTS" "")
  if(arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "kel_add_model: unexpected ${arg_UNPARSED_ARGUMENTS}")
  endif()
  get_filename_component(source "${model}" ABSOLUTE)
  set(name "${arg_NAME}")
  if(NOT name)
    get_filename_component(name "${model}" NAME_WLE)
  endif()
  get_target_property(binary_dir ${target} BINARY_DIR)
  set(gen "${binary_dir}/gen/${target}")
  set_target_properties(${target} PROPERTIES KEL_GEN_DIR "${gen}")
  string(MAKE_C_IDENTIFIER "kel_model_${target}_${name}" rule)

  set(options --anchor ${rule})
  if(arg_EXPORT)
    list(APPEND options --export)
  endif()
  set(generated "${gen}/${name}.cpp" "${gen}/${name}.h")
  if(arg_PARTS GREATER 1)
    list(APPEND options --parts ${arg_PARTS})
    foreach(part RANGE 2 ${arg_PARTS})
      list(APPEND generated "${gen}/${name}.${part}.cpp")
    endforeach()
  endif()
  _kel_model_rule(${rule} ${target} "${source}" "${name}" "${gen}" "${options}" "${generated}")
  add_dependencies(${target} ${rule})

  set_source_files_properties(${generated} PROPERTIES GENERATED TRUE SKIP_UNITY_BUILD_INCLUSION TRUE)
  target_sources(${target} PRIVATE ${generated})
  target_include_directories(${target} PUBLIC "$<BUILD_INTERFACE:${gen}>")
  set(option "")
  get_target_property(type ${target} TYPE)
  if(type STREQUAL SHARED_LIBRARY)
    set(library "$<TARGET_LINKER_FILE:$<TARGET_NAME:${target}>>")
    set(option "LINKER:--push-state,--no-as-needed,${library},--pop-state")
  elseif(NOT type STREQUAL EXECUTABLE)
    set(option "LINKER:--undefined=${rule}")
  endif()
  get_target_property(options ${target} INTERFACE_LINK_OPTIONS)
  if(option AND NOT option IN_LIST options)
    target_link_options(${target} INTERFACE "${option}")
  endif()
endfunction()

# The custom target that runs kelc. What it stands for is a stamp: the generated files keep their time when they did not
# change, and would look out of date for ever.
function(_kel_model_rule rule target source name gen options generated)
  set(kelc CliSession::kelc)
  if(KELC_EXECUTABLE)
    set(kelc "${KELC_EXECUTABLE}")
  endif()
  set(stamp "${gen}/${name}.stamp")
  set(dirs "$<TARGET_PROPERTY:${target},INCLUDE_DIRECTORIES>")
  add_custom_command(
    OUTPUT "${stamp}"
    BYPRODUCTS ${generated}
    COMMAND ${kelc} "-I${PROJECT_SOURCE_DIR}" "$<$<BOOL:${dirs}>:-I$<JOIN:${dirs},;-I>>" -o "${gen}" --name "${name}"
            ${options} --depfile "${stamp}.d" --deptarget "${stamp}" "${source}"
    COMMAND ${CMAKE_COMMAND} -E touch "${stamp}"
    DEPENDS "${source}" ${kelc}
    DEPFILE "${stamp}.d"
    COMMENT "Compiling model ${name} for ${target}"
    COMMAND_EXPAND_LISTS
    VERBATIM)
  add_custom_target(${rule} DEPENDS "${stamp}")
  if(NOT TARGET kel_models)
    add_custom_target(kel_models)
  endif()
  add_dependencies(kel_models ${rule})
endfunction()
