# The layering of the libraries, kept by the compiler.
#
# Headers are included from the repository root ("card/Apdu.hpp"), so a
# target given the root as include directory would see every layer. Instead
# each target gets a directory of its own under <build>/layers/<target>
# holding one symbolic link per folder (or header) it may include, and that
# directory as include directory. What a target sees is then what it declares
# plus what the targets it links declare PUBLIC: an include that runs back up
# (the card layer reaching into the plugin) does not compile.
#
# p15_layer_includes(<target> <PUBLIC|PRIVATE|INTERFACE> <path>...)
#   <path> is relative to the project root: a folder ("card", "host/log"),
#   a header, or a glob of headers ("app/*.hpp").
function(p15_layer_includes target scope)
  set(root ${PROJECT_BINARY_DIR}/layers/${target})
  # Start afresh, so that a path taken off the list stops being visible
  # (the links are removed, never followed).
  file(REMOVE_RECURSE ${root})
  foreach(path ${ARGN})
    if(path MATCHES "[*]")
      file(GLOB matches CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/${path})
    elseif(EXISTS ${PROJECT_SOURCE_DIR}/${path})
      set(matches ${path})
    else()
      message(FATAL_ERROR "p15_layer_includes(${target}): no ${path} in the source tree")
    endif()
    foreach(match ${matches})
      get_filename_component(parent ${root}/${match} DIRECTORY)
      file(MAKE_DIRECTORY ${parent})
      file(CREATE_LINK ${PROJECT_SOURCE_DIR}/${match} ${root}/${match} SYMBOLIC)
    endforeach()
  endforeach()
  target_include_directories(${target} ${scope} ${root})
endfunction()
