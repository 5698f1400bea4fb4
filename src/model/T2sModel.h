/* The T2S model builder's entry point, usable from C and C++. */
#ifndef T2SFST_T2SMODEL_H
#define T2SFST_T2SMODEL_H

#ifdef __cplusplus
extern "C" {
#endif

/* Compiles the JSGF grammar at grammar_path into a packed model file at model_path: 0 on
   success, 1 when the grammar does not compile (model_path is then left untouched). The
   model's input is the UTF-8 bytes of the spoken side of each token; its outputs are the
   written sides ("spoken:written"; a token without ':' writes itself; tags vanish). */
int MakeT2sModel(const char* grammar_path, const char* model_path);

/* The same, with classes of phrases: the rule <class_names[i]> (written with or without its
   brackets), which the grammar uses and does not define, is the phrases of the file
   class_files[i], one a line, "spoken" or "spoken:written". Imports of the grammar are read
   from its folder. 1 also when a class file cannot be read. */
int MakeT2sModelWithClasses(const char* grammar_path, const char* model_path, int n_classes,
                            const char* const* class_names, const char* const* class_files);

#ifdef __cplusplus
}
#endif

#endif
