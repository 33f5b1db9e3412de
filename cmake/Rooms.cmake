# A room is a folder whose headers others include as "room/File.h". Its include root contains only a link to it, so the
# compiler finds only the headers of the rooms that a target links.
function(rkm_room TARGET)
    get_filename_component(ROOM ${CMAKE_CURRENT_SOURCE_DIR} NAME)
    set(ROOT ${CMAKE_BINARY_DIR}/rooms/${ROOM})
    file(MAKE_DIRECTORY ${ROOT})
    file(CREATE_LINK ${CMAKE_CURRENT_SOURCE_DIR} ${ROOT}/${ROOM} SYMBOLIC)
    target_include_directories(${TARGET} PUBLIC ${ROOT})
endfunction()
