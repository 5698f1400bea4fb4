// The subcommands of the t2sfst command.
#ifndef T2SFST_TOOLS_COMMANDS_H
#define T2SFST_TOOLS_COMMANDS_H

struct Command {
  char const* name;
  char const* usage;    // arguments, shown after "t2sfst NAME"
  char const* summary;  // one line for the command list
  // argv[0] is the command's name; returns the exit status.
  int (*run)(int argc, char** argv);
};

int RunDemo(int argc, char** argv);
int RunLabels(int argc, char** argv);
int RunPrint(int argc, char** argv);
int RunDraw(int argc, char** argv);
int RunInfo(int argc, char** argv);
int RunConvert(int argc, char** argv);
int RunRmEpsilon(int argc, char** argv);
int RunDeterminize(int argc, char** argv);
int RunOptimize(int argc, char** argv);
int RunPush(int argc, char** argv);
int RunMinimize(int argc, char** argv);
int RunTrim(int argc, char** argv);
int RunTopsort(int argc, char** argv);
int RunCompileGrammar(int argc, char** argv);
int RunMakeModel(int argc, char** argv);
int RunApply(int argc, char** argv);
int RunCompose(int argc, char** argv);
int RunUnion(int argc, char** argv);
int RunConcat(int argc, char** argv);
int RunInvert(int argc, char** argv);
int RunProject(int argc, char** argv);
int RunReverse(int argc, char** argv);
int RunClosure(int argc, char** argv);
int RunShortestPath(int argc, char** argv);
int RunNgramCompile(int argc, char** argv);
int RunNgramScore(int argc, char** argv);
int RunNgramPack(int argc, char** argv);

#endif
