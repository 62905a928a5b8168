#include "mesh/log.h"
#include "run/options.h"

namespace velmora {

// Users compare this text between releases, misspellings and all.
void print_usage()
{
    log_line("%s",
             "  ----------------------------------------------------------------------\n"
             "  Short Description of Available Options In Alphabetical Order:\n"
             "  ----------------------------------------------------------------------\n"
             "  \n"
             "  option  arg.type        description\n"
             "  ------  --------    -------------------\n"
             "    a     0-60        Minimum triangle angle.\n"
             "    c  -1.0<=c<=1.0   Angle tolerance (default 0).\n"
             "    e     <file>      Specifies the removed triangle output file (not in use).\n"
             "    f     <file>      Specifies the input file.\n"
             "    g     g>0.0       Grid value.\n"
             "    h    0.0<h<0.87   Height ratio.\n"
             "    i     i>=0.0      Mmaximum edge length.\n"
             "    j    0.0>=j>=i    Minimum edge length.\n"
             "    l      n>0        Maximum level of the CELL-tree.\n"
             "    m      m>0.0      Points merge tolerance (default 0.001).\n"
             "    n      n>0        Lenght of the object list in one CELL-node.\n"
             "    o     <file>,=    Specifies the output file.\n"
             "    p    0.0<p<100.0  Multiple pass reduction limit.\n"
             "    q    [1,2,3,4]    Reduction mode, 1 = dist tol, 2 = short edge,\n"
             "                                      3 = max edge, 4 = bad aspect.\n"
             "    r      r>0.0      Distance tolerance.\n"
             "    E      [ab]       Output file type (not in use).\n"
             "    F      [ab]       Input file type.\n"
             "    K       -         Kill value for triangle coordinates.\n"
             "    O      [ab]       Output file type.\n"
             "    P       -         Multiple pass reduction.\n"
             "    S       -         Shape refine (not in use).\n"
             "    V      n>=0       Verbosity.\n"
             "  ----------------------------------------------------------------------\n");
}

} // namespace velmora
