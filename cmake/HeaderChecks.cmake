# Target check_headers: every header compiles alone.
function(tev_check_headers)
  file(GLOB_RECURSE headers RELATIVE ${PROJECT_SOURCE_DIR} CONFIGURE_DEPENDS
    ${PROJECT_SOURCE_DIR}/internal_include/*.h ${PROJECT_SOURCE_DIR}/processor/*.h
    ${PROJECT_SOURCE_DIR}/report_tool/*.h
    ${PROJECT_SOURCE_DIR}/src/*.h)
  set(sources "")
  foreach(header IN LISTS headers)
    string(MAKE_C_IDENTIFIER ${header} name)
    set(source ${CMAKE_BINARY_DIR}/header_checks/${name}.cpp)
    file(GENERATE OUTPUT ${source} CONTENT "#include \"${PROJECT_SOURCE_DIR}/${header}\"\n")
    list(APPEND sources ${source})
  endforeach()
  add_library(check_headers OBJECT EXCLUDE_FROM_ALL ${sources})
  target_include_directories(check_headers PRIVATE ${PROJECT_SOURCE_DIR}/report_tool)
  target_link_libraries(check_headers PRIVATE tev_reporter)
endfunction()
