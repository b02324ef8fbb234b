// list-services ADDRESS: asks a gRPC server what it offers, as generic tools do, and prints a name
// a line. A program of its own, because libdriver.so brings this protocol's messages with it and a
// process has them once.
#include <grpcpp/grpcpp.h>

#include <iostream>

#include "reflection.grpc.pb.h"

namespace {

using grpc::reflection::v1alpha::ServerReflection;
using grpc::reflection::v1alpha::ServerReflectionRequest;
using grpc::reflection::v1alpha::ServerReflectionResponse;

int listServices(const std::string& address) {
  const auto stub =
      ServerReflection::NewStub(grpc::CreateChannel(address, grpc::InsecureChannelCredentials()));
  grpc::ClientContext context;
  const auto stream = stub->ServerReflectionInfo(&context);
  ServerReflectionRequest request;
  request.set_list_services("*");
  stream->Write(request);
  stream->WritesDone();
  ServerReflectionResponse response;
  while (stream->Read(&response)) {
    for (const auto& service : response.list_services_response().service()) {
      std::cout << service.name() << '\n';
    }
  }
  const grpc::Status status = stream->Finish();
  if (!status.ok()) std::cerr << "list-services: " << status.error_message() << '\n';
  return status.ok() ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: list-services ADDRESS\n";
    return 2;
  }
  return listServices(argv[1]);
}
