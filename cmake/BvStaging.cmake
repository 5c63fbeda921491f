# ---------------------------------------------------------------------------
# The staged installation
#
# The build lays out the installed product exactly as it is found on a Mac, so
# that the uninstaller can be run from inside it (demo, end-to-end tests):
#
#   ${BV_STAGE_PRODUCT_DIR}                     <stage>/Brisvane
#   ${BV_STAGE_BUNDLE_DIR}                      <stage>/Brisvane/Brisvane.app
#   ${BV_STAGE_MACOS_DIR}                       .../Contents/MacOS         programs
#   ${BV_STAGE_TRANSLATIONS_DIR}                .../Contents/Translations  *.qm
#   ${BV_STAGE_RESOURCES_DIR}                   .../Contents/Resources     mac_BSVN.css
#
# The target `stage` (part of `all`) brings the tree up to date.
#
#   bv_stage_executable(<target>)
#       builds <target> straight into Contents/MacOS and makes `stage` depend on it.
# ---------------------------------------------------------------------------
include_guard(DIRECTORY)

set(BV_STAGE_DIR ${CMAKE_BINARY_DIR}/stage)
set(BV_STAGE_PRODUCT_DIR ${BV_STAGE_DIR}/Brisvane)
set(BV_STAGE_BUNDLE_DIR ${BV_STAGE_PRODUCT_DIR}/Brisvane.app)
set(BV_STAGE_MACOS_DIR ${BV_STAGE_BUNDLE_DIR}/Contents/MacOS)
set(BV_STAGE_TRANSLATIONS_DIR ${BV_STAGE_BUNDLE_DIR}/Contents/Translations)
set(BV_STAGE_RESOURCES_DIR ${BV_STAGE_BUNDLE_DIR}/Contents/Resources)

function(_bv_stage_target)
    if(NOT TARGET stage)
        add_custom_target(stage ALL COMMENT "Staged installation in ${BV_STAGE_PRODUCT_DIR}")
    endif()
endfunction()

function(bv_stage_executable target)
    _bv_stage_target()
    # The generator expression keeps multi-configuration generators from adding a
    # per-configuration folder: the program must sit in Contents/MacOS itself.
    set_target_properties(${target} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "$<1:${BV_STAGE_MACOS_DIR}>"
        # The programs live inside the product's bundle; they are not bundles of their own.
        MACOSX_BUNDLE OFF)
    add_dependencies(stage ${target})
endfunction()

# Copies `files` into `destination` whenever they change, as part of `stage`.
# `name` names the helper target.
function(bv_stage_files name destination)
    _bv_stage_target()
    set(outputs)
    foreach(file IN LISTS ARGN)
        get_filename_component(base ${file} NAME)
        set(output ${destination}/${base})
        add_custom_command(OUTPUT ${output}
            COMMAND ${CMAKE_COMMAND} -E make_directory ${destination}
            COMMAND ${CMAKE_COMMAND} -E copy_if_different ${file} ${output}
            DEPENDS ${file}
            VERBATIM)
        list(APPEND outputs ${output})
    endforeach()
    add_custom_target(${name} DEPENDS ${outputs})
    add_dependencies(stage ${name})
endfunction()
