# A room is a folder whose headers others include as "room/File.h". Its include root contains only a link to it, so the
# compiler finds only the headers of the rooms that a target links.
# rkm_room(TARGET [FOLDER]): FOLDER is below the current one; without it, the current one is the room.
function(rkm_room TARGET)
    set(FOLDER ${CMAKE_CURRENT_SOURCE_DIR})
    if(ARGC GREATER 1)
        set(FOLDER ${FOLDER}/${ARGV1})
    endif()
    get_filename_component(ROOM ${FOLDER} NAME)
    set(ROOT ${CMAKE_BINARY_DIR}/rooms/${ROOM})
    file(MAKE_DIRECTORY ${ROOT})
    file(CREATE_LINK ${FOLDER} ${ROOT}/${ROOM} SYMBOLIC)
    target_include_directories(${TARGET} PUBLIC ${ROOT})
endfunction()
