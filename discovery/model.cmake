# The data model. Included by this folder's CMakeLists.txt; whoever links it brings hbadisc_thread and disco_printf.
add_library(hbadisc_model OBJECT
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryList.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListEntry.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListEntryMerge.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListLocks.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListMerge.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListNames.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListSystems.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListTargets.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListVPorts.cpp
  ${CMAKE_CURRENT_LIST_DIR}/HbaDiscoveryListWwpns.cpp)
target_link_libraries(hbadisc_model PRIVATE project_options PUBLIC rmapi Threads::Threads)
