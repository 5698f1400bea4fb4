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

#ifdef __cplusplus
}
#endif

#endif
