#include "viewer/ViewerProgram.h"

int main(int argc, char** argv) {
  return Kelvaris::Viewer::runViewer(argc, argv);
}
