# LIBDEFLATE: the library that KESTRINE_CODEC asks for (src/storage/codec.h), or nothing.

set(KESTRINE_CODEC "" CACHE STRING
    "zlib, libdeflate, or nothing: decode with libdeflate where it is found, encode with zlib")
set_property(CACHE KESTRINE_CODEC PROPERTY STRINGS "" zlib libdeflate)

set(LIBDEFLATE)
if(NOT KESTRINE_CODEC MATCHES "^(zlib|libdeflate)?$")
    message(FATAL_ERROR "KESTRINE_CODEC is zlib, libdeflate or nothing, not ${KESTRINE_CODEC}")
elseif(NOT KESTRINE_CODEC STREQUAL "zlib")
    find_library(LIBDEFLATE_LIBRARY deflate)
    find_path(LIBDEFLATE_INCLUDE libdeflate.h)
    if(LIBDEFLATE_LIBRARY AND LIBDEFLATE_INCLUDE)
        add_library(libdeflate UNKNOWN IMPORTED)
        set_target_properties(libdeflate PROPERTIES IMPORTED_LOCATION ${LIBDEFLATE_LIBRARY}
            INTERFACE_INCLUDE_DIRECTORIES ${LIBDEFLATE_INCLUDE})
        set(LIBDEFLATE libdeflate)
    elseif(KESTRINE_CODEC)
        message(FATAL_ERROR "KESTRINE_CODEC=libdeflate, and libdeflate is not found")
    endif()
endif()
