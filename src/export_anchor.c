/* The shared library's objects come whole from the qor_core archive; this
   file only gives the target a source of its own. */
typedef int qor_export_anchor;
