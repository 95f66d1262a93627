# Unit framing conversion, unit walking and avcC boxes.
target_sources(qrvutil_objects PRIVATE
  ${CMAKE_CURRENT_LIST_DIR}/nal_units.cpp
  ${CMAKE_CURRENT_LIST_DIR}/avcc.cpp)
