# Build settings of the project's own targets, set per target so that nothing
# global has to be taken back for a target that cannot have it (the VM-side
# transport library runs inside java, which does not load the sanitizer
# runtimes).
#
#   jdwpkrvdbg_project_target(<target> [NO_SANITIZE])

function(jdwpkrvdbg_project_target target)
  cmake_parse_arguments(arg "NO_SANITIZE" "" "" ${ARGN})
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wno-unused-parameter)
  if(JDWPKRVDBG_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(JDWPKRVDBG_SANITIZE AND NOT arg_NO_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=address,undefined -fno-sanitize-recover=all
      -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=address,undefined)
  endif()
endfunction()
