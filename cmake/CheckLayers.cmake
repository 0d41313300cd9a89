# Fails where a source or header includes what its layer in src/CMakeLists.txt does not link, be it a header of
# another layer or of a library. (The system's include path lets any library in.) A layer's headers may use what it
# links as PUBLIC, and what comes with that. Its sources may also use what it links as PRIVATE, but nothing that
# comes with that.
#
#   cmake -DTREE=DIR -P cmake/CheckLayers.cmake
cmake_minimum_required(VERSION 3.18)

# Which library a header is of. Any other header is the language's or the system's, and free to all.
set(library_headers
  "^curl/=PkgConfig::CURL" "^openssl/=PkgConfig::SSL" "^openssl/=PkgConfig::CRYPTO" "^zlib=PkgConfig::ZLIB"
  "^json/=PkgConfig::JSONCPP" "^lua[a-z]*\\.h=PkgConfig::LUA" "^boost/filesystem=Boost::filesystem"
  "^boost/=Boost::headers" "^dlog\\.h=platform::dlog" "^vconf\\.h=platform::vconf"
  "^system_info\\.h=platform::capi-system-info" "^ss_client\\.h=platform::secure-storage"
  "^sdp_installer\\.h=platform::sdp-installer")

# One row of the table: which headers are the layer's, and what its headers (shown) and sources (used) may include. A
# header belongs to the source of its name; one without a source stands in the table itself.
macro(read_row layer)
  cmake_parse_arguments(ROW "" "" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  set(shown_${layer} ${layer})
  foreach(linked IN LISTS ROW_PUBLIC)
    list(APPEND shown_${layer} ${linked} ${shown_${linked}})
  endforeach()
  set(used_${layer} ${shown_${layer}} ${ROW_PRIVATE})
  foreach(source IN LISTS ROW_SOURCES)
    string(REGEX REPLACE "^\\.\\./internal_include/|\\.[a-z]+$" "" name ${source})
    set(owner_${name} ${layer})
  endforeach()
endmacro()

function(owners_of_include line result)
  string(REGEX REPLACE "^[^\"<]*[\"<]([^\">]*).*" "\\1" header "${line}")
  string(REGEX REPLACE "\\.h$" "" name ${header})
  set(owners ${owner_${name}})
  foreach(entry IN LISTS library_headers)
    string(REGEX MATCH "^(.*)=(.*)$" entry "${entry}")
    set(library ${CMAKE_MATCH_2})
    if(NOT owner_${name} AND header MATCHES "${CMAKE_MATCH_1}")
      list(APPEND owners ${library})
    endif()
  endforeach()
  set(${result} ${owners} PARENT_SCOPE)
endfunction()

function(check_file root file)
  string(REGEX REPLACE "\\.[a-z]+$" "" name ${file})
  set(layer ${owner_${name}})
  set(allowed ${used_${layer}})
  if(file MATCHES "\\.h$")
    set(allowed ${shown_${layer}})
  endif()
  if(NOT layer)
    message(SEND_ERROR "${root}/${file} is in no layer")
  endif()
  file(STRINGS ${TREE}/${root}/${file} lines REGEX "^ *# *include")
  foreach(line IN LISTS lines)
    owners_of_include("${line}" owners)
    set(own ${owners})
    list(REMOVE_ITEM own ${allowed} "")
    if(owners AND own STREQUAL owners)
      message(SEND_ERROR "${root}/${file}, in ${layer}: ${line} is of ${owners}")
    endif()
  endforeach()
endfunction()

file(READ ${TREE}/src/CMakeLists.txt table)
string(REGEX MATCHALL "tev_layer\\([^()]+\\)" rows "${table}")
foreach(row IN LISTS rows)
  string(REGEX MATCHALL "[^ \n()]+" words "${row}")
  list(REMOVE_AT words 0)
  read_row(${words})
endforeach()
foreach(root IN ITEMS internal_include src)
  file(GLOB_RECURSE files RELATIVE ${TREE}/${root} ${TREE}/${root}/*.h ${TREE}/${root}/*.cpp)
  foreach(file IN LISTS files)
    check_file(${root} ${file})
  endforeach()
endforeach()
