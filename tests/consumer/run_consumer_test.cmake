# A host that wants only the library: configures the project with the tools
# and tests off and with nlohmann-json and libedit made unfindable, installs it
# into a scratch prefix, then builds a tiny host against it twice: with CMake's
# find_package and with a plain compiler line from pkg-config.
file(REMOVE_RECURSE ${WORK_DIR})
set(prefix ${WORK_DIR}/prefix)

function(run what)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(rc)
    message(FATAL_ERROR "${what} failed (${rc}):\n${out}\n${err}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

run("library configure" ${CMAKE_COMMAND} -S ${PROJECT_DIR} -B ${WORK_DIR}/library
  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DJDWPKRVDBG_BUILD_TOOLS=OFF -DJDWPKRVDBG_BUILD_TESTS=OFF -DJDWPKRVDBG_WERROR=OFF
  -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON -DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON)
run("library build" ${CMAKE_COMMAND} --build ${WORK_DIR}/library --target jdwpkrvdbg dt_shmem -j 2)
run("library install" ${CMAKE_COMMAND} --install ${WORK_DIR}/library --prefix ${prefix})
if(EXISTS ${prefix}/bin/krvdbg)
  message(FATAL_ERROR "the tools were installed although switched off")
endif()

run("find_package consumer configure" ${CMAKE_COMMAND} -S ${SOURCE_DIR} -B ${WORK_DIR}/build
  -DCMAKE_PREFIX_PATH=${prefix})
run("find_package consumer build" ${CMAKE_COMMAND} --build ${WORK_DIR}/build)
run("find_package consumer run" ${WORK_DIR}/build/consumer)
message(STATUS "find_package: ${out}")

file(GLOB_RECURSE pc_file ${prefix}/*/jdwpkrvdbg.pc)
get_filename_component(pc_dir "${pc_file}" DIRECTORY)
set(ENV{PKG_CONFIG_PATH} ${pc_dir})
run("pkg-config" pkg-config --cflags --libs jdwpkrvdbg)
string(STRIP "${out}" flags)
separate_arguments(flags UNIX_COMMAND "${flags}")
string(REGEX MATCH "-L[^ ;]+" libdir_flag "${flags}")
string(SUBSTRING "${libdir_flag}" 2 -1 libdir)
run("pkg-config consumer build" c++ ${SOURCE_DIR}/main.cpp -o ${WORK_DIR}/consumer_pc ${flags} -Wl,-rpath,${libdir})
run("pkg-config consumer run" ${WORK_DIR}/consumer_pc)
message(STATUS "pkg-config: ${out}")
