# The ELF version script of the shared library, made from the one list of
# exported C names: those names and the members of the two exported classes
# are global, everything else (the standard library's template
# instantiations included) stays inside.
function(tarvel_export_map list_file out_file)
    file(STRINGS ${list_file} lines)
    set(names "")
    foreach(line IN LISTS lines)
        string(STRIP "${line}" line)
        if(line AND NOT line MATCHES "^#")
            string(APPEND names "      ${line};\n")
        endif()
    endforeach()
    file(CONFIGURE OUTPUT ${out_file} CONTENT [=[
{
  global:
    extern "C" {
@names@    };
    extern "C++" {
      Tarvel::*;
      SerialPort::*;
      "typeinfo for Tarvel";
      "typeinfo name for Tarvel";
      "vtable for Tarvel";
      "typeinfo for SerialPort";
      "typeinfo name for SerialPort";
      "vtable for SerialPort";
    };
  local:
    *;
};
]=] @ONLY)
endfunction()
