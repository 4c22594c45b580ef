# tarvelapi.pc for `pkg-config --cflags --libs tarvelapi`.
#
# The prefix in the file is the one the files are installed under: taken at
# install time (`cmake --install build --prefix /opt/x` writes /opt/x; a
# DESTDIR staging area is not part of it). For Windows, where the files ship
# in a zip that is unpacked anywhere, the prefix is found from the file's own
# place instead (${pcfiledir}).
function(tarvel_install_pkgconfig template destination)
    foreach(kind LIBDIR INCLUDEDIR)
        set(dir ${CMAKE_INSTALL_${kind}})
        if(kind STREQUAL "INCLUDEDIR")
            set(dir ${TARVEL_INSTALL_INCLUDEDIR})
        endif()
        if(IS_ABSOLUTE "${dir}")
            set(TARVEL_PC_${kind} "${dir}")
        else()
            set(TARVEL_PC_${kind} "\${prefix}/${dir}")
        endif()
    endforeach()

    set(staged ${PROJECT_BINARY_DIR}/pkgconfig/tarvelapi.pc.in)
    set(final ${PROJECT_BINARY_DIR}/pkgconfig/tarvelapi.pc)
    if(WIN32)
        # From <prefix>/<destination> back up to <prefix>.
        file(RELATIVE_PATH up /root/${destination} /root)
        string(REGEX REPLACE "/$" "" up "${up}")
        set(TARVEL_PC_PREFIX "\${pcfiledir}/${up}")
        configure_file(${template} ${final} @ONLY)
    else()
        set(TARVEL_PC_PREFIX "@TARVEL_PC_PREFIX@") # filled in at install time
        configure_file(${template} ${staged} @ONLY)
        install(CODE "set(TARVEL_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
            configure_file(\"${staged}\" \"${final}\" @ONLY)" COMPONENT development)
    endif()
    install(FILES ${final} DESTINATION ${destination} COMPONENT development)
endfunction()
