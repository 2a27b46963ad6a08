#include "sample.h"

void sample_force_load()
{
    // annotation
    sto_class_annPoint();
    sto_class_annVector();
    sto_class_annStyle();
    sto_class_annUnits();
    sto_class_annAttachable();
    sto_class_annNamedItem();
    sto_class_annDimension();
    sto_class_annLinearDimension();
    sto_class_annAngularDimension();
    sto_class_annRadialDimension();
    sto_class_annOrdinateDimension();
    sto_class_annLeader();
    sto_class_annNote();
    sto_class_annBalloon();
    sto_class_annTable();
    sto_class_annCentreMark();
    sto_class_annImage();
    sto_class_annTransform();
    sto_class_annTransformModel();
    sto_class_annItemList();
    sto_class_annViewport();
    sto_class_annView();
    sto_class_annRevision();
    sto_class_annTitleBlock();
    sto_class_annSheet();
    sto_class_annDocument();
    sto_class_annItemListMapper();
    sto_class_stoMapperannTransformannTransformModel();
    sto_mapper_annItemListMapper();
    sto_mapper_stoMapperannTransformannTransformModel();

    // gdandtol
    sto_class_gdtSymbol();
    sto_class_gdtDatum();
    sto_class_gdtDatumReference();
    sto_class_gdtToleranceZone();
    sto_class_gdtFeatureControlFrame();
    sto_class_gdtCompositeFrame();
    sto_class_gdtProfileTolerance();
    sto_class_gdtDatumTarget();
    sto_class_gdtDatumSystem();

    // vornetinput
    sto_class_vniSite();
    sto_class_vniSegment();
    sto_class_vniPolyline();
    sto_class_vniBoundary();
    sto_class_vniParameters();
    sto_class_vniWeighting();
    sto_class_vniSource();
    sto_class_vniInput();
}

void sample_delete_document(annDocument* document) { delete document; }
