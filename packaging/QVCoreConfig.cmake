# The targets QVCore::QVCore and QVCore::QVPlatform, installed. Static libraries come with the list of
# what they stand on.
include(${CMAKE_CURRENT_LIST_DIR}/QVDependencies.cmake OPTIONAL)
include(${CMAKE_CURRENT_LIST_DIR}/QVCoreTargets.cmake)
