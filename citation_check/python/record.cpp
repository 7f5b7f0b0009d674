#include "record.h"

namespace py {

Ref make_record(const Module& module, Borrowed type, std::initializer_list<FieldValue> fields) {
    auto* const made_type = reinterpret_cast<PyTypeObject*>(type.get());
    Ref record = steal(PyBaseObject_Type.tp_new(made_type, module.no_arguments, nullptr));
    for (const FieldValue& field : fields) {
        check(PyObject_GenericSetAttr(record.get(), field.name.get(), field.value.get()));
    }
    return record;
}

}  // namespace py
